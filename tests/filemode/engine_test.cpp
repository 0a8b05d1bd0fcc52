// File Mode from segments to files: HTTP recognition and chunk walking on hostile text, names
// and extensions, and the engine over streams that arrive out of order, twice, with gaps, from
// a full or clashing table, and with headers or templates that try to leave the folder.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "filemode/engine.hpp"
#include "filemode/http_response.hpp"
#include "filemode/mime_table.hpp"
#include "filemode/stream_table.hpp"
#include "support/dual_stack.hpp"
#include "support/pcap_file.hpp"
#include "support/process.hpp"
#include "support/small_disk.hpp"
#include "support/tcp_stream.hpp"

namespace vormelt::filemode {
namespace {

namespace fs = std::filesystem;

std::span<const std::uint8_t> Span(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs packets through an engine on the file clock, 1 ms apart, and returns what it wrote.
struct EngineRun {
  test::TempDir dir;
  FileModeOptions options;
  std::vector<WrittenFile> files;
  FileModeCounters counters;
  std::vector<CaptureMessage> messages;

  EngineRun() {
    options.naming.folder = dir.path();
    options.naming.nameTemplate = "f%FCS";
  }
  void Feed(const std::vector<test::Bytes>& packets) {
    FileModeEngine engine;
    engine.Start(options, StreamClock::File, {});
    std::int64_t ms = 1'700'000'000'000;
    for (const auto& packet : packets) {
      const auto frame = test::RawSocketsFrame(packet);
      engine.Take(test::Record(frame, InterfaceKind::RawSockets,
                               CaptureTime(std::chrono::milliseconds(ms++))));
    }
    engine.Finish();
    files = engine.DrainWritten();
    counters = engine.Counters();
    messages = engine.Messages().Drain();
  }
  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(options.naming.folder)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  std::string Body(std::size_t i = 0) const { return ReadFile(files.at(i).path); }
  std::string Name(std::size_t i = 0) const { return fs::path(files.at(i).path).filename(); }
};

std::string Response(std::string_view headers, std::string_view body) {
  return "HTTP/1.1 200 OK\r\n" + std::string(headers) + "\r\n" + std::string(body);
}

TEST(HttpRecognition, StatusLinesHeaderScanAndValueRule) {
  EXPECT_TRUE(RecognizeHttp(Span("http/1.0 200 OK\r\n\r\nx"), false));
  EXPECT_FALSE(RecognizeHttp(Span("HTTP/1.1 404 Not Found\r\n\r\nx"), true));
  EXPECT_FALSE(RecognizeHttp(Span("HTTP/1.1 206 Partial\r\n\r\nx"), false));
  EXPECT_TRUE(RecognizeHttp(Span("HTTP/1.1 206 Partial\r\n\r\nx"), true));
  EXPECT_FALSE(RecognizeHttp(Span("HTTP/1.0 206 Partial\r\n\r\nx"), true));
  EXPECT_FALSE(RecognizeHttp(Span("HTTP/1.1 200 OK\r\nno end"), false));
  EXPECT_FALSE(RecognizeHttp(Span("HTTP/1.1 20"), false));

  const auto typed = RecognizeHttp(
      Span("HTTP/1.1 200 OK\r\nCONTENT-TYPE:\t Text/HTML; charset=x\r\n"
           "Content-Encoding: x-gzip\r\nTransfer-Encoding: chunked\r\n\r\nB"), false);
  ASSERT_TRUE(typed);
  EXPECT_EQ(typed->contentType, "text/html");
  EXPECT_EQ(typed->extension, "html");
  EXPECT_TRUE(typed->compressed && typed->chunked);

  // The scan starts at character 17, so a header right after a short status line is missed.
  EXPECT_EQ(RecognizeHttp(Span("HTTP/1.1 200\r\nContent-Type: image/png\r\n\r\n"), false)
                ->contentType, "");
  const auto bareLf = RecognizeHttp(Span("HTTP/1.1 200 OK\nContent-Type: image/png\n\nX"), false);
  ASSERT_TRUE(bareLf);
  EXPECT_EQ(bareLf->contentType, "");
  EXPECT_EQ(bareLf->extension, "txt");
  EXPECT_EQ(bareLf->bodyOffset, 41u);
  EXPECT_EQ(HeaderValue("Content-Type: " + std::string(300, 'a'), 0).size(), kHeaderValueLimit - 1);
}

TEST(HttpRecognition, ChunksStopAtZeroGarbageOrWhatDidNotArrive) {
  const auto walk = [](std::string_view body, bool* whole = nullptr) {
    std::string out;
    const bool ended = ForEachChunk(Span(body), 0, [&](std::span<const std::uint8_t> chunk) {
      out.append(reinterpret_cast<const char*>(chunk.data()), chunk.size());
    });
    if (whole) *whole = ended;
    return out;
  };
  bool whole = false;
  EXPECT_EQ(walk("5\r\nhello\r\nA;ext=1\r\n world!!!!\r\n0\r\n\r\n", &whole), "hello world!!!!");
  EXPECT_TRUE(whole);
  EXPECT_EQ(walk("5\r\nhello\r\nffffffffffffffff\r\nabc", &whole), "hello");
  EXPECT_FALSE(whole);
  EXPECT_EQ(walk("3\r\nab"), "");
  // A chunk must be followed by its CR LF: cut right after the data it is not there yet, and
  // other bytes in its place leave the body written but not whole.
  EXPECT_EQ(walk("2\r\nab", &whole), "");
  EXPECT_FALSE(whole);
  EXPECT_EQ(walk("2\r\nab\r\n0\r\n\r\n", &whole), "ab");
  EXPECT_TRUE(whole);
  EXPECT_EQ(walk("2\r\nabXY0\r\n\r\n", &whole), "ab");
  EXPECT_FALSE(whole);
  EXPECT_EQ(walk("zz\r\nab"), "");
  EXPECT_EQ(walk("2"), "");
}

TEST(FileNaming, TokensDateAndExtensions) {
  NameFields fields{IpAddress::V4(0xC8C8C8C8), IpAddress::V4(0xC0A80064),
                    {2024, 1, 2, 12, 30, 5, 7}, {1, 2, 3, 4}};
  EXPECT_EQ(ExpandName("%sip|%SIP|%Sip|%DIP|%FCS%FCL%fci%FCC", "", fields),
            "200.200.200.200|200.200.200.200|%Sip|192.168.0.100|1234");
  EXPECT_EQ(ExpandName("[%DAT]", "%H24:%MN:%S", fields), "[12.30.05]");
  // Only the date loses its colons; an IPv6 address keeps them.
  fields.destination = *IpAddress::Parse("2001:DB8:0:0::1");
  EXPECT_EQ(ExpandName("%DIP[%DAT]", "%H24:%MN", fields), "2001:db8::1[12.30]");
  EXPECT_EQ(ExtensionForType("image/jpeg", "jpeg", false), "jpeg");
  EXPECT_EQ(ExtensionForType("image/jpeg", "jpeg", true), "jpg");
  EXPECT_EQ(ExtensionForType("image/png", "png", true), "png");
  EXPECT_EQ(ExtensionForType("application/json", "json", true), "json");
  EXPECT_EQ(ExtensionForType("application/octet-stream", "x", true), "bin_dms_lha_lzh_exe_dll");
  EXPECT_EQ(ExtensionForType("image/x-xbitmap", "x", false), "bmp");
  EXPECT_EQ(MimeRows()[kMimeRowCount - 1].type, "x-conference/x-cooltalk");
  EXPECT_EQ(SubfolderSample(SubfolderChoice::Source), "\\200.200.200.200");
  EXPECT_EQ(SubfolderSample(SubfolderChoice::None), "");
}

// The table against a plain model of the slot arrays that searches every key in order: the
// index must always pick the slot the search would, and passes must take the same streams.
TEST(StreamTableOracle, IndexPicksTheSlotTheKeySearchWould) {
  struct ModelSlot {
    bool held = false;
    std::uint32_t key = 0;
    std::int64_t last = 0;
    std::size_t segments = 0;
  };
  std::vector<ModelSlot> model(kSlotCapacity);
  std::uint32_t nextFree = 0, count = 0;
  StreamTable table;
  table.Reset({});
  std::uint32_t random = 7;
  const auto next = [&] { return random = random * 1664525u + 1013904223u; };
  for (std::int64_t now = 1; now < 20000; ++now) {
    const std::uint32_t ack = 1 + next() % 300;
    test::TcpHeader tcp;
    tcp.acknowledgement = ack;
    ASSERT_EQ(table.Append(test::TcpPacket({}, tcp, test::ToBytes("x")), now), AppendResult::Stored);
    std::uint32_t slot = 0;
    while (slot < count && !(model[slot].held && model[slot].key == ack)) ++slot;
    if (slot == count) {
      slot = nextFree;
      model[slot] = {true, ack, 0, 0};
      nextFree = 0;
      while (model[nextFree].held) ++nextFree;
      count = std::max(count, nextFree);
    }
    model[slot].last = now;
    ++model[slot].segments;
    if (next() % 50 != 0) continue;
    const std::int64_t cutoff = now - static_cast<std::int64_t>(next() % 400);
    std::uint32_t from = 0;
    while (auto stream = table.TakeRipe(from, cutoff, false)) {
      std::uint32_t expected = from;
      while (expected < count && !(model[expected].held && model[expected].last < cutoff)) ++expected;
      ASSERT_EQ(stream->slot, expected);
      ASSERT_EQ(stream->segments.size(), model[expected].segments);
      model[expected] = {};
      table.Release(expected);
      nextFree = expected;
      from = expected + 1;
    }
    for (std::uint32_t i = from; i < count; ++i) ASSERT_FALSE(model[i].held && model[i].last < cutoff);
  }
}

TEST(FileModeEngine, OutOfOrderDuplicatesAndGaps) {
  std::string body(5000, '\0');
  for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>('a' + i % 26);
  const std::string response = Response("Content-Length: 5000\r\n", body);
  auto segments = test::ResponseSegments(response);
  std::reverse(segments.begin(), segments.end());
  EngineRun reordered;
  reordered.Feed(segments);
  ASSERT_EQ(reordered.files.size(), 1u);
  EXPECT_EQ(reordered.Body(), body);
  EXPECT_TRUE(reordered.files[0].complete);
  EXPECT_EQ(reordered.Name(), "f0.txt");

  segments.erase(segments.begin() + 2);  // a gap ends the file there
  EngineRun gap;
  gap.Feed(segments);
  ASSERT_EQ(gap.files.size(), 1u);
  EXPECT_EQ(gap.Body(), body.substr(0, 3000 - (response.size() - body.size())));
  EXPECT_FALSE(gap.files[0].complete);

  // A tail-loss probe: the sender sends the end of a segment again, from inside it. The body is
  // whole by its length; a copy of bytes already there is no lost part.
  auto probed = test::ResponseSegments(response);
  test::ResponseFlow probe;
  probe.firstSequence += 1500;
  const auto copy = test::ResponseSegments(std::string_view(response).substr(1500, 500), probe);
  probed.insert(probed.begin() + 2, copy.begin(), copy.end());
  EngineRun retransmitted;
  retransmitted.Feed(probed);
  ASSERT_EQ(retransmitted.files.size(), 1u);
  EXPECT_EQ(retransmitted.Body(), body);
  EXPECT_TRUE(retransmitted.files[0].complete);

  // Two copies of the last segment: the first found wins, or the later neighbour when asked.
  auto copies = test::ResponseSegments(response);
  auto changed = test::ResponseSegments(Response("Content-Length: 5000\r\n", std::string(5000, 'Z')));
  copies.push_back(changed.back());
  for (const bool latest : {false, true}) {
    EngineRun run;
    run.options.latestDuplicates = latest;
    run.Feed(copies);
    ASSERT_EQ(run.files.size(), 1u);
    EXPECT_EQ(run.Body().back(), latest ? 'Z' : body.back());
  }
}

TEST(FileModeEngine, WhatIsWrittenAndWithWhichExtension) {
  test::ResponseFlow second;
  second.ack = 2000;
  test::ResponseFlow third;
  third.ack = 3000;
  auto packets = test::ResponseSegments(
      Response("Content-Type: text/html\r\nContent-Encoding: gzip\r\n", "\x1f\x8b zipped"));
  for (auto& p : test::ResponseSegments("HTTP/1.1 404 Not Found\r\n\r\nnope", second)) {
    packets.push_back(p);
  }
  for (auto& p : test::ResponseSegments("GET / HTTP/1.1\r\n\r\n", third)) packets.push_back(p);
  test::TcpHeader noPayload;
  noPayload.acknowledgement = 4000;
  packets.push_back(test::TcpPacket({}, noPayload, {}));
  test::TcpHeader ackZero;
  packets.push_back(test::TcpPacket({}, ackZero, test::ToBytes("HTTP/1.1 200 OK\r\n\r\nx")));

  for (const bool shortForm : {false, true}) {
    EngineRun run;
    run.options.shortExtensions = shortForm;
    run.Feed(packets);
    ASSERT_EQ(run.files.size(), 1u);
    EXPECT_EQ(run.Name(), shortForm ? "f0.htm.gz" : "f0.html.gz");
    EXPECT_EQ(run.Body(), "\x1f\x8b zipped");  // as served, not inflated
    EXPECT_EQ(run.counters.filesProcessing, 3u);
    EXPECT_EQ(run.counters.packetsStored, 3u);
  }
  EngineRun all;
  all.options.onlyHttp = false;
  all.Feed(packets);
  EXPECT_EQ(all.files.size(), 3u);
}

TEST(FileModeEngine, DirtyClashAndFullTableDropPackets) {
  test::ResponseFlow clash;
  clash.ack = 1000 + (1u << 16);  // the same upper 15 bits as 1000
  auto packets = test::ResponseSegments(Response("", "first"));
  for (auto& p : test::ResponseSegments(Response("", "second"), clash)) packets.push_back(p);
  EngineRun dirty;
  dirty.options.dirty = true;
  dirty.Feed(packets);
  ASSERT_EQ(dirty.files.size(), 1u);
  EXPECT_EQ(dirty.Body(), "first");
  EXPECT_EQ(dirty.counters.packetsDropped, 1u);

  std::vector<test::Bytes> many;
  for (std::uint32_t i = 1; i <= kSlotCapacity + 1; ++i) {
    test::TcpHeader tcp;
    tcp.acknowledgement = i;
    many.push_back(test::TcpPacket({}, tcp, test::ToBytes("x")));
  }
  EngineRun full;
  full.options.ackTimeoutMs = 1'000'000;  // nothing ripens while the table fills
  full.Feed(many);
  EXPECT_EQ(full.counters.packetsDropped, 1u);
  EXPECT_EQ(full.counters.filesProcessing, kSlotCapacity);
}

// A real capture: the same 150,000-byte file fetched over ::1 and over 127.0.0.1, and a page
// over ::1. Both copies must come out whole and identical, each beneath its server's address.
TEST(FileModeEngine, HttpOverBothFamiliesFromARealCapture) {
  std::string why;
  const std::string capture = test::DualStackCapture(why);
  if (capture.empty()) GTEST_SKIP() << why;
  test::TempDir out;
  const test::ProcessRun run =
      test::RunCli({"files", "--read", capture, "--out", out.path(), "--subdirs", "sip"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::map<std::string, std::vector<std::string>> bodies;  // by sub-folder
  for (const auto& entry : fs::recursive_directory_iterator(out.path())) {
    if (!entry.is_regular_file()) continue;
    bodies[entry.path().parent_path().filename()].push_back(ReadFile(entry.path()));
  }
  std::ranges::sort(bodies["::1"], {}, [](const std::string& body) { return body.size(); });
  ASSERT_EQ(bodies["::1"].size(), 2u);
  ASSERT_EQ(bodies["127.0.0.1"].size(), 1u);
  EXPECT_EQ(bodies["::1"][0], "hello from both families\n");
  EXPECT_EQ(bodies["::1"][1].size(), 150000u);
  EXPECT_TRUE(bodies["::1"][1] == bodies["127.0.0.1"][0]);
  EXPECT_EQ(bodies.size(), 2u);
}

// Loopback carries IPv6 segments up to the longest payload length, 40 bytes past the longest
// IPv4 datagram: such a segment is taken whole, not cut where an IPv4 one would end.
TEST(FileModeEngine, TheLongestIpv6SegmentIsTakenWhole) {
  const std::string body(65515 - 42, 'v');
  test::Bytes segment{0, 80, 0x9c, 0x40, 0, 0, 0, 1, 0, 0, 0, 100, 0x50, 0x18, 0xff, 0xff, 0, 0, 0, 0};
  for (const char c : Response("Content-Length: 65473\r\n", body)) segment.push_back(static_cast<std::uint8_t>(c));
  const test::Bytes frame = test::Ipv6Frame("2001:db8::1", "2001:db8::2", kProtocolTcp, segment);
  ASSERT_EQ(frame.size(), 14u + 40u + 65535u);
  EngineRun run;
  FileModeEngine engine;
  engine.Start(run.options, StreamClock::File, {});
  engine.Take(test::Record(frame, InterfaceKind::RawSockets, CaptureTime(std::chrono::milliseconds(1))));
  engine.Finish();
  const std::vector<WrittenFile> files = engine.DrainWritten();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(files[0].complete);
  EXPECT_EQ(ReadFile(files[0].path), body);
}

TEST(FileModeEngine, HostileHeadersAndTemplatesNeverLeaveTheFolder) {
  std::vector<test::Bytes> packets;
  std::uint32_t ack = 100;
  for (const char* type : {"text/../../x", "image/a\\b", "text/\x01x", "text/.hidden", "a/.."}) {
    test::ResponseFlow flow;
    flow.ack = ++ack;
    for (auto& p : test::ResponseSegments(Response("Content-Type: " + std::string(type) + "\r\n", type), flow)) {
      packets.push_back(p);
    }
  }
  EngineRun run;
  run.Feed(packets);
  ASSERT_EQ(run.files.size(), 5u);
  for (std::size_t i = 0; i < run.files.size(); ++i) {
    EXPECT_EQ(fs::path(run.files[i].path).parent_path(), fs::path(run.dir.path()));
    EXPECT_EQ(fs::path(run.files[i].path).extension(), ".txt");
  }
  for (const char* name : {"..", "../escape", "a/b", "%DAT"}) {
    EngineRun bad;
    bad.options.naming.nameTemplate = name;
    bad.options.naming.dateTimeTemplate = "..\\x";
    bad.Feed(test::ResponseSegments(Response("", "x")));
    EXPECT_TRUE(bad.files.empty()) << name;
    EXPECT_TRUE(bad.messages.empty()) << name;  // skipped without a word
  }
  EXPECT_FALSE(fs::exists(fs::path(run.dir.path()).parent_path() / "escape.txt"));
}

TEST(FileModeEngine, LinksAreNeverFollowedAndNumberedNamesEnd) {
  test::TempDir outside;
  EngineRun linked;
  linked.options.naming.overwrite = true;
  fs::create_symlink(outside.File("victim"), linked.dir.File("f0.txt"));
  linked.Feed(test::ResponseSegments(Response("", "x")));
  ASSERT_EQ(linked.files.size(), 1u);
  EXPECT_FALSE(linked.files[0].written());
  EXPECT_TRUE(fs::is_symlink(linked.dir.File("f0.txt")));
  EXPECT_FALSE(fs::exists(outside.File("victim")));
  ASSERT_EQ(linked.messages.size(), 1u);
  EXPECT_EQ(linked.messages[0].text, Text::FileWriteError);

  EngineRun taken;
  taken.options.naming.nameTemplate = "n";
  std::ofstream(taken.dir.File("n.txt")) << "old";
  for (int i = 2; i < kLastNumberedSuffix; ++i) {
    std::ofstream(taken.dir.File("n_" + std::to_string(i) + ".txt")) << "old";
  }
  taken.Feed(test::ResponseSegments(Response("", "x")));
  ASSERT_EQ(taken.files.size(), 1u);
  EXPECT_EQ(taken.Name(), "n_1024.txt");
  taken.Feed(test::ResponseSegments(Response("", "y")));
  EXPECT_TRUE(taken.files.empty());
  EXPECT_TRUE(taken.messages.empty());
  EXPECT_EQ(ReadFile(taken.dir.File("n.txt")), "old");
}

// A full disk: each body that does not fit is reported (the first of a run of failures with
// its path and reason, the rest as a count), leaves neither a short file nor a part file, and
// the next body that fits is written.
TEST(FileModeEngine, BodiesThatDoNotFitAreReportedAndNothingOfThemIsKept) {
  test::SmallDisk disk(256 << 10);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  std::vector<test::Bytes> packets;
  const auto add = [&](std::uint32_t ack, std::size_t size) {
    test::ResponseFlow flow;
    flow.ack = ack;
    flow.segmentSize = 60000;
    const std::string body(size, static_cast<char>('a' + ack % 26));
    for (auto& p : test::ResponseSegments(Response("Content-Length: " + std::to_string(size) + "\r\n", body), flow)) {
      packets.push_back(p);
    }
  };
  add(1, 400'000);
  add(2, 500'000);
  add(3, 300'000);
  add(4, 20'000);
  EngineRun run;
  run.options.naming.folder = disk.path();
  run.Feed(packets);
  ASSERT_EQ(run.files.size(), 4u);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_FALSE(run.files[i].written());
    EXPECT_EQ(run.files[i].error, "No space left on device");
    EXPECT_FALSE(run.files[i].complete);
    EXPECT_EQ(run.files[i].size, 0u);
  }
  EXPECT_TRUE(run.files[3].written());
  EXPECT_EQ(run.Name(3), "f0.txt");  // counted only when written
  EXPECT_EQ(run.Body(3), std::string(20'000, 'e'));
  EXPECT_EQ(run.Listing(), std::vector<std::string>{"f0.txt"});
  EXPECT_EQ(run.counters.filesWritten, 1u);
  EXPECT_EQ(run.counters.filesFailed, 3u);
  EXPECT_EQ(run.counters.bytesWritten, 20'000u);
  ASSERT_EQ(run.messages.size(), 2u);
  EXPECT_EQ(run.messages[0].text, Text::FileNotWritten);
  EXPECT_EQ(*run.messages[0].textArgument, run.files[0].path + " (No space left on device)");
  EXPECT_EQ(run.messages[1].text, Text::FileNotWrittenMore);
  EXPECT_EQ(run.messages[1].numberArgument, 2);
}

// Without over-writing, a file that takes the name while ours is being written is left alone
// and ours gets the next number; with over-writing, ours replaces it.
TEST(FileNaming, ANameTakenWhileWritingIsNotReplaced) {
  for (const bool overwrite : {false, true}) {
    test::TempDir dir;
    NamingOptions options;
    options.folder = dir.path();
    options.overwrite = overwrite;
    int fills = 0;
    const PlacedFile placed = PlaceFile(options, "n", "txt", {}, {}, [&](FileBeside& file) {
      if (fills++ == 0) std::ofstream(dir.File("n.txt")) << "theirs";
      EXPECT_FALSE(fs::exists(dir.File("n_2.txt")));  // nothing under a final name yet
      file.Write(std::string_view("ours"));
    });
    ASSERT_EQ(placed.outcome, PlaceOutcome::Written);
    EXPECT_EQ(placed.path, dir.File(overwrite ? "n.txt" : "n_2.txt"));
    EXPECT_EQ(ReadFile(dir.File("n.txt")), overwrite ? "ours" : "theirs");
    EXPECT_EQ(ReadFile(placed.path), "ours");
    EXPECT_EQ(fills, overwrite ? 1 : 2);
    EXPECT_FALSE(fs::exists(dir.File(".n.txt.part")));
    EXPECT_FALSE(fs::exists(dir.File(".n_2.txt.part")));
  }
}

}  // namespace
}  // namespace vormelt::filemode
