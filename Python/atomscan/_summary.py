"""One plain record per movie: what an archive-wide scan keeps of each file."""

import os

from ._atomscan import Error, TableError, open as _open


def _track_summary(track):
    record = {"index": track.index, "media_type": track.media_type, "enabled": track.enabled, "format": None}
    try:
        if track.media_type == "vide":
            frames = track.frames(ignore_edits=True)
            descriptions = track.video_descriptions
            record.update(format=descriptions[0]["compression"] if descriptions else None,
                          frames=len(frames), key_frames=int(frames["key"].sum()),
                          bytes=int(frames["size"].sum(dtype="u8")))
        elif track.media_type == "soun":
            descriptions = track.audio_descriptions
            if descriptions:
                record.update(format=descriptions[0]["data_format"], sample_rate=descriptions[0]["sample_rate"],
                              channels=descriptions[0]["channels"])
            record["ranges"] = len(track.audio_ranges())
        elif track.caption_format is not None:
            record.update(format=track.caption_format, captions=len(track.captions()))
        elif track.media_type == "tmcd":
            record["start_timecode"] = track.timecode()["start_timecode"]
    except TableError as e:
        record["table_error"] = e.code
    return record


def summary(path):
    """Opens the movie at `path` and gives a plain dict (JSON types only) that sums it up.

    Keys: path, error (None, or the exception's class name), code (its result code),
    and for a movie that opened time_scale, duration, seconds and tracks: one dict per
    track with index, media_type, enabled, format, and by kind frames, key_frames and
    bytes (video, all frames of the media), sample_rate, channels and ranges (sound),
    captions, or start_timecode. A table that cannot be built gives table_error (its
    code). Never raises for a file that is missing or no movie, so it maps over an archive.
    """
    record = {"path": os.fsdecode(path), "error": None, "code": None}
    try:
        with _open(path) as movie:
            record.update(time_scale=movie.time_scale, duration=movie.duration,
                          seconds=movie.duration / movie.time_scale if movie.time_scale else None,
                          tracks=[_track_summary(t) for t in movie.tracks])
    except Error as e:
        record.update(error=type(e).__name__, code=e.code)
    return record
