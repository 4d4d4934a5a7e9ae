"""Many movies at once: threads, Dask, and a thousand opens without a leak."""

import concurrent.futures
import os
import pathlib

import dask.bag
import distributed
import pytest

import atomscan
from conftest import CORPUS, NAMES

PATHS = [str(CORPUS / f"{name}.mov") for name in NAMES]


def _tables(path):
    """Every table of every track as lists of records (or the refusal's code), and the summary."""
    tables = []
    try:
        with atomscan.open(path) as movie:
            for t in movie.tracks:
                calls = {"vide": [t.frames, lambda: t.frames(True, True)], "soun": [t.audio_ranges]}.get(
                    t.media_type, [t.captions] if t.caption_format else [])
                for call in calls:
                    try:
                        tables.append(call().tolist())  # fields only: record padding is unspecified
                    except atomscan.TableError as e:
                        tables.append(e.code)
    except atomscan.Error as e:
        tables.append(e.code)
    return tables, atomscan.summary(path)


def test_threads_give_the_answers_of_one():
    paths = PATHS * 3
    one = [_tables(p) for p in paths]
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        assert list(pool.map(_tables, paths)) == one
    assert sum(len(t) for t, _ in one) > 3 * len(PATHS)


@pytest.mark.filterwarnings("ignore:make_current is deprecated:DeprecationWarning")
def test_dask_maps_summaries_over_the_corpus():
    expected = [atomscan.summary(p) for p in PATHS]
    assert [r["error"] for r in expected].count("NotAMovieError") == 1
    bag = dask.bag.from_sequence(PATHS, npartitions=4).map(atomscan.summary)
    assert bag.compute(scheduler="threads") == expected
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
            distributed.Client(cluster):
        assert bag.compute() == expected


def test_a_thousand_opens_leak_no_descriptor_or_memory():
    def rss():
        return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def cycle():
        with atomscan.open(CORPUS / "long_60s_lowres.mov") as movie:  # 39 kB of movie atom, 1498 frames
            assert len(movie.tracks[0].frames()) == 1498
        try:
            atomscan.open(CORPUS / "damaged_truncated_in_moov.mov")
        except atomscan.NotAMovieError:
            pass

    for _ in range(50):
        cycle()
    descriptors, memory = len(os.listdir("/proc/self/fd")), rss()
    for _ in range(1000):
        cycle()
    assert len(os.listdir("/proc/self/fd")) == descriptors
    # A kept movie atom or frame table would add 39 or 36 MB over the thousand.
    assert rss() - memory < 4 << 20
