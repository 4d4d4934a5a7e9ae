"""Paths of every kind, and every refusal as the exception it must be."""

import os
import pathlib

import pytest

import atomscan
from conftest import CORPUS

SAMPLE = CORPUS / "broadcast_2997_tc_c608_aac.mov"  # video, sound, captions, timecode


def _track(kind):
    return next(t for t in atomscan.open(SAMPLE).tracks if t.media_type == kind)


def _closed():
    movie = atomscan.open(SAMPLE)
    movie.close()
    return movie


@pytest.mark.parametrize("name", ["plain.mov", "café 映画 🎬.mov", "spaces and 'quotes'.mov"])
@pytest.mark.parametrize("form", [str, pathlib.Path, os.fsencode])
def test_any_unicode_path_opens(tmp_path, name, form):
    path = tmp_path / name
    path.write_bytes(SAMPLE.read_bytes())
    with atomscan.open(form(path)) as movie:
        assert [t.media_type for t in movie.tracks] == ["vide", "soun", "clcp", "tmcd"]
        assert len(movie.tracks[2].captions()) == 62  # the caption table reads the file by this path
    assert movie.closed


# What to call -> the exception it raises, and the result code that it carries.
REFUSED = [
    ("missing file", lambda tmp: atomscan.open(tmp / "missing.mov"), atomscan.OpenError, 0xA0800004),
    ("directory", lambda tmp: atomscan.open(tmp), atomscan.OpenError, 0xA0800004),
    ("empty file", lambda tmp: atomscan.open((tmp / "e.mov", (tmp / "e.mov").write_bytes(b""))[0]),
     atomscan.NotAMovieError, 0xA0800001),
    ("not a movie", lambda tmp: atomscan.open(CORPUS / "corpus.json"), atomscan.NotAMovieError, 0xA0800001),
    ("movie atom cut short", lambda tmp: atomscan.open(CORPUS / "damaged_truncated_in_moov.mov"),
     atomscan.NotAMovieError, 0xA0800001),
    ("fix a missing file", lambda tmp: atomscan.fix(tmp / "missing.mov", dry_run=True), atomscan.OpenError,
     0xA0800004),
    ("fix no movie", lambda tmp: atomscan.fix(CORPUS / "corpus.json"), atomscan.NotAMovieError, 0xA0800001),
    ("two edits", lambda tmp: atomscan.open(CORPUS / "edit_video_delayed_empty.mov").tracks[0].frames(),
     atomscan.TableError, 0xA0800005),
    ("fragmented", lambda tmp: atomscan.open(CORPUS / "frag_every_frame.mov").tracks[0].frames(),
     atomscan.TableError, 0xA0800007),
    ("no sdtp", lambda tmp: _track("vide").temporal_references(), atomscan.TableError, 0xA0800007),
    ("compressed sound", lambda tmp: _track("soun").audio_ranges(), atomscan.TableError, 0xA0800006),
    ("description index", lambda tmp: _track("vide").image_description(1), atomscan.ContractError, None),
    ("channel map index", lambda tmp: _track("soun").channel_map(3), atomscan.ContractError, None),
    ("frames of sound", lambda tmp: _track("soun").frames(), TypeError, None),
    ("ranges of video", lambda tmp: _track("vide").audio_ranges(), TypeError, None),
    ("timecode of video", lambda tmp: _track("vide").timecode(), TypeError, None),
    ("captions of timecode", lambda tmp: _track("tmcd").captions(), TypeError, None),
    ("video of captions", lambda tmp: _track("clcp").video_descriptions, TypeError, None),
    ("sound of video", lambda tmp: _track("vide").channel_map(), TypeError, None),
    ("closed movie", lambda tmp: _closed().tracks, ValueError, None),
    ("null in path", lambda tmp: atomscan.open("a\0b.mov"), ValueError, None),
    ("short code", lambda tmp: atomscan.open(SAMPLE).child_atom("mvh"), ValueError, None),
]


@pytest.mark.parametrize("call, error, code", [r[1:] for r in REFUSED], ids=[r[0] for r in REFUSED])
def test_refusals_raise(tmp_path, call, error, code):
    with pytest.raises(error) as raised:
        call(tmp_path)
    if issubclass(error, atomscan.Error):
        assert raised.value.code == code
    if error is atomscan.OpenError:
        assert isinstance(raised.value, OSError)
    if error in (atomscan.NotAMovieError, atomscan.TableError, atomscan.ContractError):
        assert isinstance(raised.value, ValueError)


def test_tracks_outlive_their_movie():
    with atomscan.open(SAMPLE) as movie:
        video = movie.tracks[0]
    assert len(video.frames()) == 118 and video.video_descriptions[0]["compression"] == "avc1"
