"""The frames of every real movie against the independent parser's packets, and the rest
of the API against the command's dump, which the C++ corpus test holds to that parser."""

import json
import re
from functools import reduce

import numpy as np
import pytest

import atomscan
from conftest import CORPUS, INDEX, NAMES


def test_frames_equal_the_independent_parsers_packets():
    compared = 0
    for record in INDEX["files"]:
        if record.get("derivation") or record["layout"].get("fragmented"):
            continue  # damaged copies and fragments: the packets are not the sample table's
        try:
            movie = atomscan.open(CORPUS / record["name"])
        except atomscan.Error:
            continue
        probe = json.loads((CORPUS / (record["name"][:-4] + ".ffprobe.json")).read_text())
        for i, track in enumerate(movie.tracks):
            if track.media_type != "vide":
                continue
            packets = [p for p in probe["packets"] if p["stream_index"] == i]
            frames = track.frames(ignore_edits=True)
            key = np.array(["K" in p["flags"] for p in packets])
            assert frames["offset"].tolist() == [int(p["pos"]) for p in packets], record["name"]
            assert frames["size"].tolist() == [int(p["size"]) for p in packets], record["name"]
            # The independent parser also calls the frames of an `stps` table key frames.
            assert not (frames["key"] & ~key).any() if record["tracks"][i]["present"]["stps"] \
                else (frames["key"] == key).all(), record["name"]
            compared += 1
    assert compared == 37  # every video track of the movies that are neither damaged copies nor fragmented


def _plain(value):
    """Tuples as lists, numpy scalars as numbers: as JSON would carry them."""
    return json.loads(json.dumps(value, default=lambda x: x.item()))


def _camel(name):
    return re.sub(r"_(\w)", lambda m: m[1].upper(), name)


def _item(shown):
    """A dumped item as the API gives it: None when its code refuses it, else its value or values."""
    if not isinstance(shown, dict) or "code" not in shown:
        return shown
    values = [v for k, v in shown.items() if k != "code"]
    return None if shown["code"] != "0x00000000" else values[0] if len(values) == 1 else values


def _rows(table, *args):
    """A table's records, or the code of its TableError."""
    try:
        return table(*args).tolist()
    except atomscan.TableError as e:
        return e.code


def _shown_rows(table, key="records"):
    return table[key] if table["code"] == "0x00000000" else int(table["code"], 16)


# Movie and track attributes -> the dump's key of the same name in camel case, or the path given.
MOVIE_ATTRIBUTES = "time_scale duration poster_time movie_atom_size bounds".split()
TRACK_ATTRIBUTES = dict.fromkeys(
    "index media_type enabled dimensions duration media_time_scale edit_duration edit_media_time trimmed "
    "duration_in_media_time_scale edit_sample_count sample_description_count all_sample_descriptions_equivalent"
    .split()) | {
    "production_aperture_dimensions": "productionAperture", "encoded_pixels_dimensions": "encodedPixels",
    "matrix_identity": "matrix/identity", "self_contained": "dataReference/selfContained",
    "single_data_reference": "dataReference/single", "data_reference_type": "dataReference/type",
    "single_external_path": "dataReference/singleExternalPath"}
VIDEO_KEYS = "compression vendor width height depth codec_name quality clean_aperture pixel_aspect field_info color_info"
SOUND_KEYS = "sampleRate numChannels bitsPerSample packedBitsPerSample dataFormat rawDataFormat uncompressed"


# The dump's part for a kind of track (None: every track) -> what the API tells of it, and the same from the dump.
KINDS = {
    None: (lambda t: [t.has_simple_edit_list(), t.has_simple_edit_list(True), t.rotation],
           lambda d: [d["simpleEditList"]["anyRate"], d["simpleEditList"]["unitRate"],
                      d["matrix"]["rotation"] if d["matrix"]["rightAngle"] else None]),
    "video": (lambda t: [t.video_descriptions, [t.image_description(i).hex() for i in range(t.sample_description_count)],
                         t.contains_delta_frames, t.has_temporal_reference_data, t.has_earlier_display_key_frames,
                         t.all_image_descriptions_equivalent(), t.all_image_descriptions_equivalent(True),
                         _rows(t.frames), _rows(t.frames, False, True),
                         _rows(t.temporal_references) if t.has_temporal_reference_data else None],
              lambda d: [[{k: _item(v[_camel(k)]) for k in VIDEO_KEYS.split()} for v in d["descriptions"]],
                         [v["imageDescription"]["data"] for v in d["descriptions"]],
                         d["containsDeltaFrames"], d["hasTemporalReferenceData"], d["hasEarlierDisplayKeyFrames"],
                         *d["allImageDescriptionsEquivalent"].values(),
                         *[_shown_rows(d[k]) for k in ("sampleTable", "mediaSampleTable")],
                         d["temporalReferences"] and _shown_rows(d["temporalReferences"])]),
    "audio": (lambda t: [[list(a.values()) for a in t.audio_descriptions],
                         [t.channel_map(i) for i in range(t.sample_description_count)],
                         [_rows(t.audio_ranges, k) for k in (False, True)]],
              lambda d: [[[a[k] for k in SOUND_KEYS.split()] for a in d["descriptions"]],
                         [m["map"] if m["result"] and not m["layoutNotUnderstood"] else None
                          for m in (a["channelMap"] for a in d["descriptions"])],
                         [_shown_rows(d[k], "ranges") for k in ("rangesByPosition", "rangesByOffset")]]),
    "timecode": (lambda t: {_camel(k): v for k, v in t.timecode().items()},
                 lambda d: {{"numberOfFrames": "framesPerSecond"}.get(k, k): _item(v)
                            for k, v in {**d["info"], **d}.items() if k not in ("code", "info")}),
    "caption": (lambda t: [t.caption_format, t.caption_frame_duration, _rows(t.captions), _rows(t.captions, True)],
                lambda d: [d["format"], d["frameDuration"]] + [_shown_rows(d[k]) for k in ("byTime", "byOffset")]),
}


@pytest.mark.parametrize("name", NAMES)
def test_api_agrees_with_the_command(name):
    document = atomscan.dump(CORPUS / f"{name}.mov")  # the command's document (test_dump_fix)
    try:
        movie = atomscan.open(CORPUS / f"{name}.mov")
    except atomscan.Error as e:
        assert document["movie"] is None and int(document["open"], 16) == e.code
        return
    shown = document["movie"]
    assert _plain([getattr(movie, a) for a in MOVIE_ATTRIBUTES]) == [shown[_camel(a)] for a in MOVIE_ATTRIBUTES]
    assert len(movie.tracks) == shown["trackCount"]
    assert [(t, d.hex()) for t, d in movie.user_data] == [
        (bytes.fromhex(u["type"][2:]).decode("latin-1") if u["type"].startswith("0x") else u["type"], u["data"])
        for u in shown["userData"]]
    assert list(movie.metadata) == [m["key"] for m in shown["metadata"]]
    for track, shown_track in zip(movie.tracks, document["tracks"]):
        for attribute, path in TRACK_ATTRIBUTES.items():
            shown_value = reduce(lambda part, key: part[key], (path or _camel(attribute)).split("/"), shown_track)
            assert _plain(getattr(track, attribute)) == shown_value, attribute
        for part, (ours, theirs) in KINDS.items():
            if part is None or part in shown_track:
                assert _plain(ours(track)) == _plain(theirs(shown_track[part] if part else shown_track)), part
