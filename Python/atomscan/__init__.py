"""Where every frame, audio range and caption of a QuickTime movie lies.

atomscan reads a movie's ``moov`` atom and tells, from that copy, its tracks and
their descriptions, and tables of where each piece of media lies in the file, so
that the caller can read the media bytes itself::

    import atomscan
    with atomscan.open("clip.mov") as movie:
        video = next(t for t in movie.tracks if t.media_type == "vide")
        frames = video.frames()            # NumPy: offset, size, duration, time, key
        keys = frames[frames["key"]]

The library works with the GIL released, so tables of many movies can be built
from a thread pool. ``summary(path)`` gives one plain dict per movie, for mapping
over an archive (for example with a Dask bag).
"""

import json as _json

from ._atomscan import (
    AUDIO_RANGE_DTYPE,
    CAPTION_DTYPE,
    FRAME_DTYPE,
    TEMPORAL_REFERENCE_DTYPE,
    ContractError,
    Error,
    ExternalReference,
    MendedEntry,
    Movie,
    NotAMovieError,
    OpenError,
    TableError,
    Track,
    _dump_json,
    fix,
    open,
)
from ._summary import summary

__all__ = [
    "AUDIO_RANGE_DTYPE", "CAPTION_DTYPE", "FRAME_DTYPE", "TEMPORAL_REFERENCE_DTYPE",
    "ContractError", "Error", "ExternalReference", "MendedEntry", "Movie", "NotAMovieError", "OpenError",
    "TableError", "Track", "dump", "fix", "open", "summary",
]


def dump(path, tables=True):
    """Everything the library tells about the movie at `path`, as `atomscan dump` prints it.

    A dict with the command's keys (path, open, movie, tracks, references; see the
    command's documentation), made by the same code. Without `tables` the per-sample
    tables are None. A file that does not open gives no exception: its document has
    the result code in "open", "movie" None and, for a refused movie, "refused".
    """
    return _json.loads(_dump_json(path, tables)[1])
