#!/usr/bin/env python3
"""Review aid for the expected dump documents in Tests/Data/dumps.

Run from the project's top folder after regenerating them (docs/testing.md):

    python3 scripts/review-dumps.py

The corpus dump test holds each document against ffprobe and the corpus index.
This script looks at what they cannot tell, from the corpus's atom listings
(NAME.atoms.txt) and the movie files, and prints every disagreement:

- the edit numbers (editDuration, editMediaTime, durationInMediaTimeScale,
  editSampleCount, trimmed), worked out again from the listed mvhd, tkhd, mdhd,
  elst and stts by the rules of the track core;
- each image description as stored (the file's bytes at the listed stsd entry),
  its depth, compressor name and qualities, and its platform form, turned by
  hand (the fixed part, the first pasp, clap and nclc colr of their sizes);
- the movie's user data payloads (the file's bytes of each listed udta child);
- each audio range map keyed by offset against the one keyed by position.

It ends with the values of the remaining fields over the whole corpus, to be
read against the documentation of each operation. Nothing here is a test.
"""
import ast
import collections
import glob
import json
import os
import re
import sys

M = 0xffffffff


def movie_to_media(v, movie, media):
    media_s = media - 2**32 if media >= 2**31 else media
    if media_s == movie:
        return v
    return (v * media_s // movie) & M if movie else 0


def media_to_movie(v, movie, media):
    media_s = media - 2**32 if media >= 2**31 else media
    if media_s == movie:
        return v
    return (v * movie // media_s) & M if media_s else 0


def listing(name):
    atoms = []
    for line in open('Tests/Data/corpus/%s.atoms.txt' % name, encoding='utf-8'):
        m = re.match(r'( *)@(\d+) size=(\d+) (\S+) ?(.*)', line.rstrip('\n'))
        if m:
            atoms.append(dict(depth=len(m.group(1)) // 2, offset=int(m.group(2)), size=int(m.group(3)),
                              type=m.group(4), fields=m.group(5)))
    return atoms


def inside(atoms, at):
    end = at + 1
    while end < len(atoms) and atoms[end]['depth'] > atoms[at]['depth']:
        end += 1
    return atoms[at + 1:end]


def field(text, key):
    m = re.search(r'\b%s=(.*?)( \w+=|$)' % key, text)
    return m.group(1) if m else None


def edit_numbers(trak, movie_scale, media_type):
    tkhd = next(a for a in trak if a['type'] == 'tkhd')
    mdhd = next(a for a in trak if a['type'] == 'mdhd')
    stts_atom = next(a for a in trak if a['type'] == 'stts')
    elst = [a for a in trak if a['type'] == 'elst']
    duration, media = int(field(tkhd['fields'], 'duration')), int(field(mdhd['fields'], 'timescale'))
    media_duration = int(field(mdhd['fields'], 'duration'))
    edits = ast.literal_eval(elst[0]['fields'].split('entries=')[1]) if elst else []
    count = int(field(stts_atom['fields'], 'entry_count'))
    stts = ast.literal_eval(stts_atom['fields'].split('entries_head=')[1]) if count else []
    if len(stts) != count:
        return None  # the listing shows only the head of the table
    if not edits or not stts:
        edit_duration, edit_time = movie_to_media(duration, movie_scale, media), 0
    elif len(edits) >= 2:
        edit_duration, edit_time = duration, 0
    else:
        edit_duration, edit_time = movie_to_media(edits[0]['duration'], movie_scale, media), edits[0]['media_time'] & M
    first = 0
    if len(edits) == 1 and stts and edit_time:
        if media_type == 'soun':
            first = edit_time
        else:
            rest, index = edit_time, 0
            while True:
                total, d = 0, stts[-1][1]
                for n, dur in stts:
                    total += n
                    if index < total:
                        d = dur
                        break
                if d >= 2**31:
                    break
                if d > rest:
                    first = index
                    break
                rest, index = rest - d, index + 1
    limit, elapsed, total = (edit_duration + edit_time) & M, 0, 0
    for n, d in stts:
        span = (n * d) & M
        if edit_time:
            t = movie_to_media(edit_time, movie_scale, media)
            if elapsed < t < elapsed + span:
                span, n = (span - t) & M, (n - first) & M
        if elapsed + span > limit:
            shown = (limit - elapsed) & M
            n = (n - ((span - shown) & M) // d) & M if d else n
            span = shown
        elapsed, total = (elapsed + span) & M, (total + n) & M
        if elapsed >= limit:
            break
    simple = len(edits) <= 1 and all(e['rate'] == 1.0 for e in edits)
    return {'editDuration': media_to_movie(edit_duration, movie_scale, media), 'editMediaTime': edit_time,
            'durationInMediaTimeScale': movie_to_media(duration, movie_scale, media), 'editSampleCount': total,
            'trimmed': not simple or edit_time != 0 or edit_duration != media_duration}


def platform_form(stored):
    b = bytearray(stored)

    def turn(at, width):
        b[at:at + width] = b[at:at + width][::-1]
    for at in (0, 4, 8, 20, 24, 28, 36, 40, 44):
        turn(at, 4)
    for at in (12, 14, 16, 18, 32, 34, 48, 82, 84):
        turn(at, 2)
    at, seen = 86, set()
    while at + 8 <= len(stored):
        size, kind = int.from_bytes(stored[at:at + 4], 'big'), bytes(stored[at + 4:at + 8])
        if size < 8 or at + size > len(stored):
            break
        if kind not in seen:
            seen.add(kind)
            if kind == b'pasp' and size == 16:
                turn(at + 8, 4), turn(at + 12, 4)
            elif kind == b'clap' and size == 40:
                for i in range(8):
                    turn(at + 8 + 4 * i, 4)
            elif kind == b'colr' and size == 18 and stored[at + 8:at + 12] == b'nclc':
                turn(at + 8, 4)
                for i in range(3):
                    turn(at + 12 + 2 * i, 2)
        at += size
    return bytes(b)


def main():
    problems, values = [], collections.defaultdict(collections.Counter)
    for path in sorted(glob.glob('Tests/Data/dumps/*.json')):
        name = os.path.basename(path)[:-5]
        dump = json.load(open(path))
        if not dump['movie']:
            values['refused'][name] += 1
            continue
        atoms, data = listing(name), open('Tests/Data/corpus/%s.mov' % name, 'rb').read()
        movie_scale = int(field(next(a for a in atoms if a['type'] == 'mvhd')['fields'], 'timescale'))
        udta = [i for i, a in enumerate(atoms) if a['type'] == 'udta' and a['depth'] == 1]
        stored = [data[a['offset'] + 8:a['offset'] + a['size']].hex() for i in udta for a in inside(atoms, i)
                  if a['depth'] == 2]
        if [u['data'] for u in dump['movie']['userData']] != stored:
            problems.append('%s: user data' % name)
        for key in ('posterTime', 'metadata'):
            values['movie.' + key][json.dumps(dump['movie'][key])] += 1
        traks = [i for i, a in enumerate(atoms) if a['type'] == 'trak']
        for t, (at, track) in enumerate(zip(traks, dump['tracks'])):
            where = '%s track %d' % (name, t)
            trak = inside(atoms, at)
            expected = edit_numbers(trak, movie_scale, track['mediaType'])
            got = {k: track[k] for k in (expected or {})}
            if expected is not None and got != expected:
                problems.append('%s: edit numbers %s, worked out %s' % (where, got, expected))
            for key in ('simpleEditList', 'allSampleDescriptionsEquivalent', 'productionAperture', 'encodedPixels'):
                values['track.' + key][json.dumps(track[key])] += 1
            values['track.identity2D is identity'][track['matrix']['identity2D'] == track['matrix']['identity']] += 1
            video = track.get('video')
            if video:
                entry = trak[next(i for i, a in enumerate(trak) if a['type'] == 'stsd') + 1]
                d = video['descriptions'][0]
                image = data[entry['offset']:entry['offset'] + entry['size']]
                fields = entry['fields']
                if (d['imageDescription']['data'], d['depth'], d['codecName']['value'], d['quality']['temporal'],
                        d['quality']['spatial']) != (image.hex(), int(field(fields, 'depth')),
                                                     field(fields, 'compressor_name'),
                                                     int(field(fields, 'temporal_quality')),
                                                     int(field(fields, 'spatial_quality'))):
                    problems.append('%s: image description fields' % where)
                if d['platformImageDescription']['data'] != platform_form(image).hex():
                    problems.append('%s: platform image description' % where)
                for key in ('allImageDescriptionsEquivalent', 'cleanApertureDimensions', 'hasEarlierDisplayKeyFrames'):
                    values['video.' + key][json.dumps(video[key])] += 1
                refs = video['temporalReferences']
                values['video.temporalReferences (data, code, records)'][
                    (video['hasTemporalReferenceData'], refs and refs['code'], refs and len(refs['records']))] += 1
            audio = track.get('audio')
            if audio:
                by_position, by_offset = audio['rangesByPosition'], audio['rangesByOffset']
                rekeyed = sorted([r[3]] + r[1:] for r in by_position['ranges'])
                if by_position['code'] != by_offset['code'] or rekeyed != by_offset['ranges']:
                    problems.append('%s: ranges by offset' % where)
            timecode = track.get('timecode')
            if timecode:
                values['timecode.handleValue'][json.dumps(timecode['handleValue'])] += 1
    for key, counter in values.items():
        print('%-50s %s' % (key, dict(counter)))
    print('\n'.join(problems) or 'no disagreement')
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
