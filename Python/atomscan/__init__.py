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

from ._atomscan import (
    AUDIO_RANGE_DTYPE,
    CAPTION_DTYPE,
    FRAME_DTYPE,
    TEMPORAL_REFERENCE_DTYPE,
    ContractError,
    Error,
    ExternalReference,
    Movie,
    NotAMovieError,
    OpenError,
    TableError,
    Track,
    open,
)
from ._summary import summary

__all__ = [
    "AUDIO_RANGE_DTYPE", "CAPTION_DTYPE", "FRAME_DTYPE", "TEMPORAL_REFERENCE_DTYPE",
    "ContractError", "Error", "ExternalReference", "Movie", "NotAMovieError", "OpenError",
    "TableError", "Track", "open", "summary",
]
