"""frames() from Python against the C++ call it wraps, on a movie of a million frames.

    PYTHONPATH=build/release/Python /usr/bin/python3 Bench/python_frames.py [frames] [rounds]

Writes the movie of the `video_1m` benchmark (60 fps at 60000, runs of 10 frames
of 1000 and 1002 units, a key frame every 60, sizes of 1000 to 2999 bytes, one
frame per chunk, one edit from the third frame to 40 movie units before the end)
to a temporary folder, the media data as a hole. Then, in rounds that take the two in turn,
times Track.frames() and MakeFullVideoSampleTable (through the module's timing
helper, in C++, into a new vector each call as frames() does), both with the edit,
in CPU time of the calling thread (the machine's other load does not count), and
prints the medians and their ratio. Last, the frame tables of the movie
opened 8 times, from one thread and from a pool of 2.
"""

import concurrent.futures
import os
import statistics
import struct
import sys
import tempfile
import time

import atomscan


def atom(kind, *parts):
    body = b"".join(parts)
    return struct.pack(">I4s", 8 + len(body), kind) + body


def full(kind, *parts):  # version and flags, then the content
    return atom(kind, b"\0\0\0\0", *parts)


def table(kind, fmt, rows):
    return full(kind, struct.pack(">I", len(rows)), b"".join(struct.pack(fmt, *r) for r in rows))


def video_movie(path, frames, media_start=0):
    """Writes the movie; the frames lie from `media_start` on, which the first call finds."""
    sizes = [1000 + (i * 7919) % 2000 for i in range(frames)]
    offsets, at = [], media_start
    for s in sizes:
        offsets.append(at)
        at += s
    runs = [(min(10, frames - d), 1002 if r % 2 else 1000) for r, d in enumerate(range(0, frames, 10))]
    media_duration = sum(n * d for n, d in runs)
    movie_duration = media_duration // 100
    identity = struct.pack(">9I", 0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000)
    image = struct.pack(">I4s6xHHH4sIIHHIIIH32sHH", 86, b"avc1", 1, 0, 0, b"FFMP", 0, 0, 1920, 1080,
                        0x480000, 0x480000, 0, 1, b"", 24, 0xFFFF)
    stbl = atom(b"stbl",
                full(b"stsd", struct.pack(">I", 1), image),
                table(b"stts", ">II", runs),
                table(b"stss", ">I", [(s,) for s in range(1, frames + 1, 60)]),
                table(b"stsc", ">III", [(1, 1, 1)]),
                full(b"stsz", struct.pack(">II", 0, frames), struct.pack(f">{frames}I", *sizes)),
                full(b"stco", struct.pack(">I", frames), struct.pack(f">{frames}I", *offsets)))
    dinf = atom(b"dinf", full(b"dref", struct.pack(">I", 1), atom(b"alis", struct.pack(">I", 1))))
    trak = atom(b"trak",
                full(b"tkhd", struct.pack(">IIIII8x4H", 0, 0, 1, 0, movie_duration, 0, 0, 0, 0), identity,
                     struct.pack(">II", 1920 << 16, 1080 << 16)),
                atom(b"edts", table(b"elst", ">III", [(movie_duration - 40, 2000, 0x10000)])),
                atom(b"mdia",
                     full(b"mdhd", struct.pack(">IIIIHH", 0, 0, 60000, media_duration, 0, 0)),
                     full(b"hdlr", b"mhlr", b"vide", bytes(13)),
                     atom(b"minf", full(b"vmhd", bytes(8)), dinf, stbl)))
    mvhd = full(b"mvhd", struct.pack(">IIIIIH10x", 0, 0, 600, movie_duration, 0x10000, 0x100), identity,
                struct.pack(">7I", 0, 0, 0, 0, 0, 0, 2))
    moov = atom(b"moov", mvhd, trak)
    ftyp = atom(b"ftyp", b"qt  ", struct.pack(">I", 0x200), b"qt  ")
    header = ftyp + moov + struct.pack(">I4s", 8 + at - media_start, b"mdat")
    if media_start != len(header):
        return video_movie(path, frames, len(header))
    with open(path, "wb") as f:
        f.write(header)
        f.truncate(at)  # the frames themselves are a hole


def main():
    frames = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 31
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "video.mov")
        started = time.perf_counter()
        video_movie(path, frames)
        print(f"movie of {frames} frames written in {time.perf_counter() - started:.1f} s")
        track = atomscan.open(path).tracks[0]
        shown = len(track.frames())
        py, cpp = [], []
        for _ in range(rounds):
            started = time.thread_time()
            table = track.frames()
            py.append(time.thread_time() - started)
            del table
            cpp += atomscan._atomscan._time_full_video_sample_table(track)
        ms = [1000 * statistics.median(x) for x in (py, cpp)]
        print(f"frames():                   median {ms[0]:.2f} ms, min {1000 * min(py):.2f} ms")
        print(f"MakeFullVideoSampleTable:   median {ms[1]:.2f} ms, min {1000 * min(cpp):.2f} ms")
        print(f"ratio (median, min):        {ms[0] / ms[1]:.3f}, {min(py) / min(cpp):.3f}")

        def tables(_):
            for _ in range(8):
                with atomscan.open(path) as movie:
                    assert len(movie.tracks[0].frames()) == shown

        rates = []
        for workers in (1, 2):
            started = time.perf_counter()
            with concurrent.futures.ThreadPoolExecutor(workers) as pool:
                list(pool.map(tables, range(workers)))
            rates.append(8 * workers / (time.perf_counter() - started))
            print(f"open + frames(), 8 per thread, {workers} thread(s): {rates[-1]:.1f} a second")
        print(f"2 threads against 1: {rates[1] / rates[0]:.2f}x")

if __name__ == "__main__":
    main()
