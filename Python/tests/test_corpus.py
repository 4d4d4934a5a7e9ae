"""The frame tables of the real movies against the independent parser's packets,
as the C++ corpus test compares them, and the rest of the API against the
command's dump of the same movies."""

import numpy as np
import pytest

import atomscan
from conftest import CORPUS, INDEX, NAMES, probe


def _video_tracks():
    """(file record, track number, track, probe of the good file, its packets) for each
    video track of the movies that open; a damaged copy goes with the probe of its source."""
    for record in INDEX["files"]:
        try:
            movie = atomscan.open(CORPUS / record["name"])
        except atomscan.Error:
            continue
        derivation = record.get("derivation", {})
        name = record["name"]
        if derivation and derivation["kind"] != "stco_rewritten_as_co64":
            name = derivation["derived_from"]
        reading = probe(name[:-4])
        assert len(movie.tracks) == len(reading["streams"])
        for i, track in enumerate(movie.tracks):
            if record["tracks"][i]["media_type"] == "vide":
                packets = [p for p in reading["packets"] if p["stream_index"] == i]
                yield record, record["tracks"][i], track, packets


def test_frames_equal_the_independent_parsers_packets():
    compared = edited = refused = 0
    for record, info, track, packets in _video_tracks():
        where = f"{record['name']} track {track.index}"
        if info["sample_count"] == 0:  # fragmented: the samples are in the fragments
            with pytest.raises(atomscan.TableError) as e:
                track.frames(ignore_edits=True)
            assert e.value.code == 0xA0800007, where
            continue
        frames = track.frames(ignore_edits=True)
        assert len(frames) == len(packets), where
        pos = np.array([int(p["pos"]) for p in packets], dtype="u8")
        # What the garbage top bytes of a damaged copy add to its chunk offsets.
        shifts = {0} | {d["damaged"] - d["original"]
                        for d in record.get("derivation", {}).get("damaged_entries", [])}
        assert set((frames["offset"] - pos).tolist()) <= shifts, where
        assert frames["size"].tolist() == [int(p["size"]) for p in packets], where
        key = np.array(["K" in p["flags"] for p in packets])
        if info["present"]["stps"]:  # the independent parser also flags stps frames as key
            assert not (frames["key"] & ~key).any(), where
        else:
            assert (frames["key"] == key).all(), where
        assert frames["duration"].tolist() == [p["duration"] for p in packets], where
        assert frames["time"].tolist() == [p["dts"] - packets[0]["dts"] for p in packets], where
        compared += 1

        # With the edit: the same records from the first frame that ends after the edit's
        # media time, timed from there; no frame that the independent parser discards.
        if info["elst"] is not None and len(info["elst"]) >= 2:
            with pytest.raises(atomscan.TableError) as e:
                track.frames()
            assert e.value.code == 0xA0800005, where
            refused += 1
            continue
        shown = track.frames()
        media_time = 0 if info["elst"] is None else info["elst"][0]["media_time"]
        first = int(np.count_nonzero(frames["time"].astype("u8") + frames["duration"] <= media_time))
        assert len(shown) == len(frames) - first, where
        assert not any("D" in p["flags"] for p in packets[first:]), where
        rest = frames[first:].copy()
        rest["time"] -= frames["time"][first]
        assert (shown == rest).all(), where
        edited += 1
    # Every video track but the two fragmented ones; two tracks have an empty edit in front.
    assert (compared, edited, refused) == (41, 39, 2)


def _rows(table, *args):
    """A table's records as tuples, or the code of its TableError."""
    try:
        return table(*args).tolist()
    except atomscan.TableError as e:
        return e.code


def _shown_rows(table, key="records"):
    return [tuple(r) for r in table[key]] if table["code"] == "0x00000000" else int(table["code"], 16)


# Python attribute or call -> what the dump shows for it, for every track of its kind.
TRACK_FIELDS = [
    ("index", lambda t: t.index, lambda d: d["index"]),
    ("media_type", lambda t: t.media_type, lambda d: d["mediaType"]),
    ("enabled", lambda t: t.enabled, lambda d: d["enabled"]),
    ("dimensions", lambda t: list(t.dimensions), lambda d: d["dimensions"]),
    ("durations", lambda t: [t.duration, t.media_time_scale, t.edit_duration, t.edit_media_time,
                             t.duration_in_media_time_scale, t.edit_sample_count],
     lambda d: [d["duration"], d["mediaTimeScale"], d["editDuration"], d["editMediaTime"],
                d["durationInMediaTimeScale"], d["editSampleCount"]]),
    ("edits", lambda t: [t.has_simple_edit_list(), t.has_simple_edit_list(True), t.trimmed],
     lambda d: [d["simpleEditList"]["anyRate"], d["simpleEditList"]["unitRate"], d["trimmed"]]),
    ("descriptions", lambda t: [t.sample_description_count, t.all_sample_descriptions_equivalent],
     lambda d: [d["sampleDescriptionCount"], d["allSampleDescriptionsEquivalent"]]),
    ("matrix", lambda t: [t.matrix_identity, t.rotation],
     lambda d: [d["matrix"]["identity"], d["matrix"]["rotation"] if d["matrix"]["rightAngle"] else None]),
    ("apertures", lambda t: [t.production_aperture_dimensions, t.encoded_pixels_dimensions],
     lambda d: [d["productionAperture"] and tuple(d["productionAperture"]),
                d["encodedPixels"] and tuple(d["encodedPixels"])]),
    ("data reference", lambda t: [t.self_contained, t.single_data_reference, t.data_reference_type,
                                  t.single_external_path],
     lambda d: [d["dataReference"][k] for k in ("selfContained", "single", "type", "singleExternalPath")]),
    ("vide", lambda t: [[v["compression"], v["vendor"], v["width"], v["height"], v["depth"], v["codec_name"],
                         v["quality"], v["pixel_aspect"], v["field_info"], v["color_info"], v["clean_aperture"]]
                        for v in t.video_descriptions]
     + [t.image_description(i).hex() for i in range(t.sample_description_count)]
     + [t.contains_delta_frames, t.has_temporal_reference_data, t.has_earlier_display_key_frames,
        t.all_image_descriptions_equivalent(), t.all_image_descriptions_equivalent(True)],
     lambda d: [[v["compression"], v["vendor"], v["width"], v["height"], v["depth"], v["codecName"].get("value"),
                 *[(lambda x, keys: tuple(x[k] for k in keys) if x["code"] == "0x00000000" else None)(v[name], keys)
                   for name, keys in (("quality", ("temporal", "spatial")),
                                      ("pixelAspect", ("horizontal", "vertical")),
                                      ("fieldInfo", ("count", "ordering")),
                                      ("colorInfo", ("primaries", "transfer", "matrix")))],
                 tuple(v["cleanAperture"]["values"]) if "values" in v["cleanAperture"] else None]
                for v in d["video"]["descriptions"]]
     + [v["imageDescription"]["data"] for v in d["video"]["descriptions"]]
     + [d["video"]["containsDeltaFrames"], d["video"]["hasTemporalReferenceData"],
        d["video"]["hasEarlierDisplayKeyFrames"], d["video"]["allImageDescriptionsEquivalent"]["exactSize"],
        d["video"]["allImageDescriptionsEquivalent"]["ignoringSize"]]),
    ("vide tables", lambda t: [_rows(t.frames), _rows(t.frames, False, True),
                               _rows(t.temporal_references) if t.has_temporal_reference_data else None],
     lambda d: [_shown_rows(d["video"][k]) for k in ("sampleTable", "mediaSampleTable")]
     + [d["video"]["temporalReferences"] and _shown_rows(d["video"]["temporalReferences"])]),
    ("soun", lambda t: [[list(a.values()) for a in t.audio_descriptions],
                        [t.channel_map(i) for i in range(t.sample_description_count)],
                        [_rows(t.audio_ranges, k) for k in (False, True)]],
     lambda d: [[[a[k] for k in ("sampleRate", "numChannels", "bitsPerSample", "packedBitsPerSample",
                                 "dataFormat", "rawDataFormat", "uncompressed")] for a in d["audio"]["descriptions"]],
                [a["channelMap"]["map"] if a["channelMap"]["result"] and not a["channelMap"]["layoutNotUnderstood"]
                 else None for a in d["audio"]["descriptions"]],
                [_shown_rows(d["audio"][k], "ranges") for k in ("rangesByPosition", "rangesByOffset")]]),
    ("tmcd", lambda t: [t.timecode()[k] for k in ("drop_frame", "frames_per_second", "sample_location",
                                                 "start_frame", "start_timecode")],
     lambda d: [d["timecode"]["info"].get("dropFrame"), d["timecode"]["info"].get("numberOfFrames"),
                (d["timecode"]["sampleLocation"]["offset"], d["timecode"]["sampleLocation"]["size"])
                if d["timecode"]["sampleLocation"]["code"] == "0x00000000" else None,
                (d["timecode"]["startFrame"] or {}).get("value"), d["timecode"]["startTimecode"]]),
    ("caption", lambda t: [t.caption_format, t.caption_frame_duration,
                           _rows(t.captions), _rows(t.captions, True)],
     lambda d: [d["caption"]["format"], d["caption"]["frameDuration"]]
     + [_shown_rows(d["caption"][k]) for k in ("byTime", "byOffset")]),
]


def _applies(field, track, shown):
    kind = field.split()[0]
    if kind in ("vide", "soun", "tmcd"):
        return track.media_type == kind
    if kind == "caption":
        return "caption" in shown
    return True


@pytest.mark.parametrize("name", NAMES)
def test_api_agrees_with_the_command(name):
    document = atomscan.dump(CORPUS / f"{name}.mov")  # the command's document (test_dump_fix)
    try:
        movie = atomscan.open(CORPUS / f"{name}.mov")
    except atomscan.Error as e:
        assert document["movie"] is None and int(document["open"], 16) == e.code
        return
    shown = document["movie"]
    assert [movie.time_scale, movie.duration, movie.poster_time, movie.movie_atom_size, list(movie.bounds),
            len(movie.tracks)] == [shown[k] for k in ("timeScale", "duration", "posterTime", "movieAtomSize",
                                                      "bounds", "trackCount")]
    assert [(t, d.hex()) for t, d in movie.user_data] == [
        (bytes.fromhex(u["type"][2:]).decode("latin-1") if u["type"].startswith("0x") else u["type"], u["data"])
        for u in shown["userData"]]
    assert list(movie.metadata) == [m["key"] for m in shown["metadata"]]
    for track, shown_track in zip(movie.tracks, document["tracks"]):
        for field, ours, theirs in TRACK_FIELDS:
            if not _applies(field, track, shown_track):
                continue
            assert ours(track) == theirs(shown_track), f"{name} track {track.index}: {field}"
