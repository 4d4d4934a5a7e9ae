"""dump() against the built command's output, and fix() on the damaged corpus copies."""

import shutil

import pytest

import atomscan
from conftest import CORPUS, INDEX, NAMES, tool_dump


@pytest.mark.parametrize("name, options", [(n, ()) for n in NAMES] + [("short_1s", ("--no-tables",)),
                                                                      ("missing", ()), ("corpus", ())])
def test_dump_equals_the_command(name, options):
    path = str(CORPUS / f"{name}.{'json' if name == 'corpus' else 'mov'}")
    assert atomscan.dump(path, tables=not options) == tool_dump(path, *options)


# A damaged copy -> the entries each pass of the repair mends, until nothing is left to mend.
FIXES = [
    ("damaged_stco_topbyte_single", [[3]]),
    ("damaged_stco_topbyte_edges", [[11, 500], [10]]),  # 10 only once 11 is mended; the last entry never
    ("layout_faststart", [[]]),
]


@pytest.mark.parametrize("name, passes", FIXES)
def test_fix_mends_the_damaged_entries(tmp_path, name, passes):
    record = next(f for f in INDEX["files"] if f["name"] == f"{name}.mov")
    damaged = {d["index"]: d for d in record.get("derivation", {}).get("damaged_entries", [])}
    path = tmp_path / f"{name}.mov"
    shutil.copy(CORPUS / record["name"], path)
    for indices in passes:
        expected = [(0, i, damaged[i]["damaged"], damaged[i]["original"]) for i in indices]
        kept = path.read_bytes()
        assert atomscan.fix(path, dry_run=True) == expected
        assert path.read_bytes() == kept
        assert atomscan.fix(str(path)) == expected
    assert atomscan.fix(path) == []
    # The file is its source again, but for the entries that no pass mended.
    expected = bytearray((CORPUS / record.get("derivation", {}).get("derived_from", record["name"])).read_bytes())
    for i in set(damaged) - {i for p in passes for i in p}:
        at = damaged[i]["entry_file_offset"]
        expected[at:at + 4] = (CORPUS / record["name"]).read_bytes()[at:at + 4]
    assert path.read_bytes() == expected
