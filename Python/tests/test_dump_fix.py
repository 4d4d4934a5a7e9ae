"""dump() against the built command's output, and fix() on the damaged corpus copies."""

import struct

import pytest

import atomscan
from conftest import CORPUS, INDEX, NAMES, tool_dump


@pytest.mark.parametrize("name, options", [(n, ()) for n in NAMES] + [("short_1s", ("--no-tables",)),
                                                                      ("missing", ()), ("corpus", ())])
def test_dump_equals_the_command(name, options):
    path = str(CORPUS / f"{name}.{'json' if name == 'corpus' else 'mov'}")
    assert atomscan.dump(path, tables=not options) == tool_dump(path, *options)


def _refused(movie):
    """The movie with its last track's `stsz` renamed `free` and its `udta` traded for an empty `stsz` that
    closes the last `stbl` and so the movie atom: the parser refuses a step onto the last 8 bytes of the movie
    atom, the repair takes it."""
    data = bytearray(movie)
    udta = data.index(b"udta") - 4
    del data[udta:udta + struct.unpack_from(">I", data, udta)[0]]
    data[udta:udta] = struct.pack(">I4s", 8, b"stsz")
    stsz = data.rindex(b"stsz", 0, udta)
    data[stsz:stsz + 4] = b"free"
    grown = {b"moov": len(data) - len(movie)}  # the other parents grow by the new atom
    for parent in (b"moov", b"trak", b"mdia", b"minf", b"stbl"):
        at = data.rindex(parent, 0, udta) - 4
        struct.pack_into(">I", data, at, struct.unpack_from(">I", data, at)[0] + grown.get(parent, 8))
    return bytes(data)


# A damaged copy (and how it is made from the corpus file) -> the entries each pass of the repair mends, until
# nothing is left to mend.
FIXES = [
    ("damaged_stco_topbyte_single", bytes, [[3]]),
    ("damaged_stco_topbyte_edges", bytes, [[11, 500], [10]]),  # 10 only once 11 is mended; the last entry never
    ("layout_faststart", bytes, [[]]),
    ("damaged_stco_topbyte_single", _refused, [[3]]),
]


@pytest.mark.parametrize("name, make, passes", FIXES)
def test_fix_mends_the_damaged_entries(tmp_path, name, make, passes):
    record = next(f for f in INDEX["files"] if f["name"] == f"{name}.mov")
    damaged = {d["index"]: d for d in record.get("derivation", {}).get("damaged_entries", [])}
    path = tmp_path / f"{name}.mov"
    path.write_bytes(make((CORPUS / record["name"]).read_bytes()))
    if make is _refused:
        with pytest.raises(atomscan.NotAMovieError, match="the track has no stsz"):
            atomscan.open(path)
    for indices in passes:
        expected = [(0, i, damaged[i]["damaged"], damaged[i]["original"]) for i in indices]
        kept = path.read_bytes()
        assert atomscan.fix(path, dry_run=True) == expected
        assert path.read_bytes() == kept
        assert atomscan.fix(str(path)) == expected
    assert atomscan.fix(path) == []
    # The file is its source again, but for the entries that no pass mended.
    expected = bytearray(make((CORPUS / record.get("derivation", {}).get("derived_from", record["name"])).read_bytes()))
    for i in set(damaged) - {i for p in passes for i in p}:
        at = damaged[i]["entry_file_offset"]
        expected[at:at + 4] = make((CORPUS / record["name"]).read_bytes())[at:at + 4]
    assert path.read_bytes() == expected
