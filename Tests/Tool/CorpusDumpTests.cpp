// Every real movie of the test data, through the whole dump: the document equals the expected one kept
// in Data/dumps, and what an independent parser (ffprobe) read of the same file agrees with it: tracks,
// descriptions, every frame, audio range, caption pair and timecode. A derived copy's frames are held
// against the file it was made from.
#include <set>

#include "Tests/Tool/ToolRunner.h"

using namespace tooltest;

namespace {

std::uint64_t N(const json& v) { return v.is_string() ? std::stoull(v.get<std::string>()) : v.get<std::uint64_t>(); }
bool Flag(const json& packet, char f) { return packet["flags"].get<std::string>().find(f) != std::string::npos; }
json Parse(const std::filesystem::path& path) { return json::parse(std::ifstream(path)); }

// The decoders' format codes, the caption samples that ffprobe leaves out and the description items that
// the corpus index decoded (Data/corpus-expectations.json tells each).
const json kExpected = Parse(TestDataDir() / "corpus-expectations.json");

struct Counts { int frames = 0, editedFrames = 0, refusedEdits = 0, ranges = 0, timecodes = 0, captions = 0; };

// The frames of a video track in decode order against the packets of its stream; then the frames that the
// edit shows: from the first that ends after the edit's media time (the corpus edits start on a frame and
// last to the media's end), timed from there, none that ffprobe discards.
void CheckFrames(const json& video, const json& info, const std::vector<json>& packets,
                 const std::set<std::uint64_t>& shifts, Counts& n)
{
    const json &all = video["mediaSampleTable"]["records"], &shown = video["sampleTable"];
    ASSERT_EQ(video["mediaSampleTable"]["code"], info["sample_count"] == 0 ? "0xa0800007" : "0x00000000");
    if (info["sample_count"] == 0) return; // fragmented: the frames are in the fragments
    ASSERT_EQ(all.size(), packets.size());
    const bool partialSync = info["present"]["stps"]; // ffprobe also flags `stps` frames as key
    for (std::size_t j = 0; j < all.size(); ++j) {
        const json &r = all[j], &p = packets[j];
        EXPECT_EQ(shifts.count(N(r[0]) - N(p["pos"])), 1u) << j;
        EXPECT_EQ(json({r[1], r[2], N(r[3])}), json({N(p["size"]), p["duration"], N(p["dts"]) - N(packets[0]["dts"])}));
        EXPECT_TRUE(partialSync ? !r[4] || Flag(p, 'K') : r[4] == Flag(p, 'K')) << j;
    }
    ++n.frames;
    if (info["elst"].size() >= 2) {
        EXPECT_EQ(shown["code"], "0xa0800005");
        ++n.refusedEdits;
        return;
    }
    ASSERT_EQ(shown["code"], "0x00000000");
    const std::uint64_t mediaTime = info["elst"].is_null() ? 0 : N(info["elst"][0]["media_time"]);
    std::size_t first = 0;
    while (first < all.size() && N(all[first][3]) + N(all[first][2]) <= mediaTime) ++first;
    ASSERT_EQ(first + shown["records"].size(), all.size());
    for (std::size_t j = 0; j < all.size(); ++j) {
        EXPECT_TRUE(!Flag(packets[j], 'D') || j < first) << j;
        if (j < first) continue;
        json expected = all[j];
        expected[3] = N(expected[3]) - N(all[first][3]);
        EXPECT_EQ(shown["records"][j - first], expected) << j;
    }
    ++n.editedFrames;
}

// The frames an uncompressed sound track maps, each where ffprobe's packets put its bytes: from the edit's
// media time (a frame number for sound) to the last.
void CheckRanges(const json& track, const std::vector<json>& packets, std::uint64_t bytesPerFrame, Counts& n)
{
    std::vector<std::uint64_t> offsets; // of each frame
    for (const json& p : packets) {
        EXPECT_EQ(N(p["size"]) % bytesPerFrame, 0u);
        for (std::uint64_t at = 0; at < N(p["size"]); at += bytesPerFrame) offsets.push_back(N(p["pos"]) + at);
    }
    const json& map = track["audio"]["rangesByPosition"];
    const bool simple = track["simpleEditList"]["unitRate"];
    ASSERT_EQ(map["code"], simple ? "0x00000000" : "0xa0800005");
    std::uint64_t output = 0, frame = track["editMediaTime"];
    for (const json& r : map["ranges"]) { // key, frame count, output position, offset
        EXPECT_EQ(json({r[0], r[2]}), json({output, output}));
        for (std::uint64_t i = 0; i < r[1]; ++i, ++frame)
            ASSERT_TRUE(frame < offsets.size() && offsets[frame] == N(r[3]) + i * bytesPerFrame) << frame;
        output += N(r[1]);
    }
    EXPECT_EQ(output, simple && !offsets.empty() ? offsets.size() - N(track["editMediaTime"]) : 0);
    ++n.ranges;
}

// The caption pairs: ffprobe turns each pair behind the 8-byte `cdat` header into a 3-byte triplet, and
// its times carry the leading empty edit.
void CheckCaptions(const std::string& name, const json& caption, std::vector<json> packets, Counts& n)
{
    const std::int64_t frameDuration = kExpected["captions"].at(name)[0];
    const auto last = kExpected["captions"][name][1].get<std::array<std::uint64_t, 3>>();
    EXPECT_EQ(caption["frameDuration"], frameDuration);
    packets.push_back({{"pts", last[0]}, {"size", std::to_string((last[1] - 8) / 2 * 3)}, {"pos", std::to_string(last[2])}});
    std::map<std::uint64_t, json> byOffset, byTime;
    for (const json& p : packets) {
        for (std::uint64_t j = 0; j < N(p["size"]) / 3; ++j) {
            const std::uint64_t time = N(p["pts"]) + j * frameDuration, offset = N(p["pos"]) + 8 + 2 * j;
            byOffset.emplace(offset, json({offset, time, offset, 2, false, 0, 0}));
            byTime.emplace(time, json({time, time, offset, 2, false, 0, 0})); // the first of a time stands
        }
    }
    for (auto [table, expected] : {std::pair{"byOffset", &byOffset}, {"byTime", &byTime}}) {
        json records = json::array();
        for (const auto& [key, r] : *expected) records.push_back(r);
        EXPECT_EQ(caption[table], json({{"code", "0x00000000"}, {"records", records}})) << table;
    }
    ++n.captions;
}

// One corpus movie: its dump, the corpus index's record, ffprobe's reading (and that of the file a damaged copy
// was made from, with what garbage in the top byte of a chunk offset adds to it).
struct Movie {
    std::string name;
    json dump, record, probe, frameProbe;
    std::set<std::uint64_t> shifts = {0};
};

void CheckTrack(const Movie& movie, std::size_t i, Counts& n)
{
    const json &track = movie.dump["tracks"][i], &stream = movie.probe["streams"][i], &info = movie.record["tracks"][i];
    std::vector<json> packets, framePackets;
    for (const json& p : movie.probe["packets"]) if (p["stream_index"] == i) packets.push_back(p);
    for (const json& p : movie.frameProbe["packets"]) if (p["stream_index"] == i) framePackets.push_back(p);
    const std::string tag = stream.value("codec_tag_string", ""), codec = stream.value("codec_type", "");
    const std::string type = codec == "video" ? "vide" : codec == "audio" ? "soun" : codec == "subtitle" ? "clcp" : tag;
    int rotation = 0; // of the display matrix, in degrees counterclockwise
    for (const json& side : stream.value("side_data_list", json::array())) rotation = side.value("rotation", rotation);
    // ffprobe makes an enabled track its stream's default.
    EXPECT_EQ(json({track["mediaType"], "1/" + std::to_string(N(track["mediaTimeScale"])), track["enabled"],
                    track["matrix"]["rotation"], track["matrix"]["identity"], track["matrix"]["rightAngle"],
                    track["dimensions"], track.contains("video"), track.contains("audio"), track.contains("timecode")}),
              json({type, stream["time_base"], stream["disposition"]["default"] == 1, (rotation / 90 % 4 + 4) % 4,
                    rotation == 0, true, {0, 0, stream.value("width", 0), stream.value("height", 0)}, type == "vide",
                    type == "soun", type == "tmcd"}));
    const json& dref = info["dref"];
    EXPECT_EQ(json({track["sampleDescriptionCount"], track["dataReference"], track["externalReferences"]}),
              json({info["sample_description_count"],
                    {{"selfContained", dref.size() == 1 && dref[0]["flags"] == 1}, {"single", dref.size() == 1},
                     {"type", dref.empty() ? "0x00000000" : dref[0]["type"]}, {"singleExternalPath", nullptr}},
                    {{"result", true}, {"refs", json::array()}}}));
    if (type == "vide") {
        const json &video = track["video"], &d = video["descriptions"][0];
        EXPECT_EQ(json({d["compression"], d["vendor"], d["width"], d["height"]}),
                  json({tag, stream["tags"]["vendor_id"], stream["width"], stream["height"]}));
        const json& sync = info["sync_sample_count"];
        EXPECT_EQ(json({video["containsDeltaFrames"], video["hasTemporalReferenceData"]}),
                  json({!sync.is_null() && sync != info["sample_count"],
                        info["present"]["sdtp"] && info["present"]["ctts"]}));
        for (const json& items : kExpected["items"]) { // each number as the index decoded it, or refused
            const std::string atom = items[0];
            json expected = {{"code", info.contains(atom) ? "0x00000000" : "0xa0800008"}};
            for (const json& key : items[2]) {
                if (!info.contains(atom)) break;
                if (key[0] != "") expected[key[0].get<std::string>()] = info[atom][key[1].get<std::string>()];
                else expected["values"].push_back(info[atom][key[1].get<std::string>()]);
            }
            EXPECT_EQ(d[items[1].get<std::string>()], expected) << atom;
        }
        CheckFrames(video, info, framePackets, movie.shifts, n);
    } else if (type == "soun") {
        const json& d = track["audio"]["descriptions"][0];
        const std::string decoder = stream["codec_name"];
        ASSERT_TRUE(kExpected["formatOfCodec"].contains(decoder)) << decoder;
        const bool uncompressed = decoder.starts_with("pcm_") && decoder != "pcm_mulaw";
        const unsigned bits = stream.value("bits_per_sample", 0u);
        EXPECT_EQ(json({d["rawDataFormat"], d["dataFormat"], std::to_string(N(d["sampleRate"])), d["numChannels"],
                        d["uncompressed"]}),
                  json({tag, kExpected["formatOfCodec"][decoder], stream["sample_rate"], stream["channels"], uncompressed}));
        EXPECT_TRUE(!uncompressed || bits == 0 || (d["bitsPerSample"] == bits && d["packedBitsPerSample"] == bits));
        // Every corpus sound description has a `chan`, and only 5.1 is understood. Version 0 carries it right
        // behind its 36 fixed bytes, where the search (from 52) does not look.
        const bool version0 = info["sound_description_version"] == 0;
        const bool known = !version0 && stream.value("channel_layout", "").starts_with("5.1");
        EXPECT_EQ(d["channelMap"], json({{"result", !version0}, {"layoutNotUnderstood", !version0 && !known},
                                         {"map", known ? json({0, 1, 2, 3, 4, 5}) : json()}}));
        if (uncompressed) CheckRanges(track, info["sample_count"] == 0 ? std::vector<json>{} : packets,
                                      bits / 8 * N(d["numChannels"]), n);
    } else if (type == "tmcd") {
        const json &timecode = track["timecode"], &location = timecode["sampleLocation"];
        const json& tc = info["timecode"];
        EXPECT_EQ(timecode["info"], json({{"code", "0x00000000"}, {"dropFrame", tc["drop_frame"]},
                                          {"timeScale", tc["timescale"]}, {"ticksPerFrame", tc["frame_duration"]},
                                          {"numberOfFrames", tc["number_of_frames"]}, {"handleReference", false},
                                          {"name", ""}})); // ffmpeg writes no source name
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(json({location["offset"], location["size"], timecode["startTimecode"]}),
                  json({N(packets[0]["pos"]), N(packets[0]["size"]), stream["tags"]["timecode"]}));
        ++n.timecodes;
    }
    if (type == "clcp") CheckCaptions(movie.name, track["caption"], packets, n);
    else EXPECT_EQ(track.contains("caption"), false);
}

TEST(CorpusDump, ExpectedDocumentsAgreeWithTheIndependentParser)
{
    Counts n;
    const json corpus = Parse(CorpusDir() / "corpus.json");
    for (const json& record : corpus["files"]) {
        Movie m;
        m.name = std::filesystem::path(record["name"].get<std::string>()).stem();
        m.record = record;
        SCOPED_TRACE(m.name);
        std::string text;
        const QT::ResultCode code = atomscan_tool::WriteDumpJson(CorpusMovie(m.name), {}, text);
        m.dump = json::parse(text);
        EXPECT_EQ(m.dump["path"], CorpusMovie(m.name).string());
        m.dump["path"] = "Tests/Data/corpus/" + m.name + ".mov"; // as the expected documents were made
        const Bytes file = ReadFile(TestDataDir() / "dumps" / (m.name + ".json"));
        const std::string expected(file.begin(), file.end()), made = CorpusMovie(m.name).string();
        const json patch = json::diff(json::parse(expected), m.dump);
        EXPECT_TRUE(patch.empty()) << patch.dump().substr(0, 2000);
        // The layout too: the same text, once the path reads as it did when the documents were made.
        EXPECT_TRUE(!patch.empty() || text.replace(text.find(made), made.size(), m.dump["path"]) == expected) << text;
        if (m.name == "damaged_truncated_in_moov") { // the file ends inside its movie atom: the copy comes up short
            EXPECT_EQ(json({code, m.dump["open"], m.dump["movie"]}), json({0xa0800001u, "0xa0800001", nullptr}));
            continue;
        }
        ASSERT_EQ(code, QT::kResultSuccess);
        const json& derivation = record.value("derivation", json::object());
        m.probe = Probe(m.name);
        m.frameProbe = derivation.empty() || derivation["kind"] == "stco_rewritten_as_co64"
                           ? m.probe : Probe(std::filesystem::path(derivation.value("derived_from", "")).stem());
        for (const json& d : derivation.value("damaged_entries", json::array()))
            m.shifts.insert(N(d["damaged"]) - N(d["original"]));
        const json &streams = m.probe["streams"], &movie = m.dump["movie"];
        EXPECT_EQ(json({m.dump["tracks"].size(), movie["trackCount"], movie["movieAtomSize"], movie["timeScale"],
                        movie["duration"]}),
                  json({streams.size(), streams.size(), record["layout"]["moov_size"], record["movie_timescale"],
                        record["movie_duration"]}));
        int right = 0, bottom = 0;
        for (std::size_t i = 0; i < std::min(streams.size(), m.dump["tracks"].size()); ++i) {
            SCOPED_TRACE("track " + std::to_string(i));
            CheckTrack(m, i, n);
            right = std::max(right, streams[i].value("width", 0));
            bottom = std::max(bottom, streams[i].value("height", 0));
        }
        EXPECT_EQ(movie["bounds"], json({0, 0, right, bottom})); // the union of the tracks and the origin
        if (m.name.starts_with("raw_")) { // frames of one size: `ftyp` and `moov` alone give the same frame table
            const Bytes whole = ReadFile(CorpusMovie(m.name));
            const std::size_t at = N(record["layout"]["moov_offset"]), size = N(record["layout"]["moov_size"]);
            Bytes copy(whole.begin(), whole.begin() + whole[3]);
            copy.insert(copy.end(), whole.begin() + at, whole.begin() + at + size);
            const TempFile file(copy);
            EXPECT_EQ(Dump(file.Path())["tracks"][0]["video"]["sampleTable"], m.dump["tracks"][0]["video"]["sampleTable"]);
        }
    }
    // Every video track but the two fragmented ones; two have an empty edit in front. Two timecode tracks in one movie.
    EXPECT_EQ(std::vector({n.frames, n.editedFrames, n.refusedEdits, n.ranges, n.timecodes, n.captions}),
              std::vector({41, 39, 2, 19, 7, 2}));
}

} // namespace
