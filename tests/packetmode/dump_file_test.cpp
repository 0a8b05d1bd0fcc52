// Dump files: what is saved loads back to the same frames in every data form, an appended
// file stops at its first footer, and a damaged file keeps every record before the damage.
#include "packetmode/dump_file.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "packetmode/packet_mode_engine.hpp"
#include "support/frames.hpp"
#include "support/pcap_file.hpp"
#include "support/small_disk.hpp"

namespace vormelt {
namespace {

using test::Bytes;

struct Loaded {
  Bytes bytes;
  InterfaceKind kind;
  std::string timeText;
};

class CollectingSink final : public FrameSink {
 public:
  SinkVerdict Take(const FrameRecord& frame) override {
    // Every frame must come with its zeroed spare bytes readable.
    for (std::uint32_t i = 0; i < kFrameSpareBytes; ++i) {
      if (frame.bytes.data()[frame.bytes.size() + i] != 0) ADD_FAILURE() << "spare byte " << i;
    }
    frames.push_back({Bytes(frame.bytes.begin(), frame.bytes.end()), frame.kind,
                      std::string(frame.timeText)});
    return SinkVerdict::Stored;
  }
  std::vector<Loaded> frames;
};

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Frames chosen for the layouts' edges: 10 and 20 bytes end Dec lines exactly, 16/17/32 end or
// just miss a hex line, a Text-form frame full of CR, LF and zero bytes, both interface kinds.
std::vector<Bytes> EdgeFrames() {
  std::vector<Bytes> frames;
  for (const std::size_t size : {10u, 14u, 16u, 17u, 20u, 32u, 255u}) {
    Bytes frame(size);
    for (std::size_t i = 0; i < size; ++i) frame[i] = static_cast<std::uint8_t>(i * 37 + size);
    frames.push_back(frame);
  }
  frames.push_back(test::EthernetFrame({}, {}, 0x0800,
                                       test::UdpPacket({}, 53, 53, test::ToBytes("\r\n\r\n-\0[x]"))));
  // Awkward ones, each under both kinds: no bytes at all, a runt, an empty type text (IPv4
  // protocol 0 has no name, and a runt with EtherType 0x0800 reads as protocol 0), a type that
  // overflows its column ("IDPR "), the largest frame.
  Bytes protocol0 = test::EthernetFrame({}, {}, 0x0800, test::UdpPacket({}, 1, 2, {}));
  protocol0[kEthernetHeaderLength + 9] = 0;
  Bytes idpr = protocol0;
  idpr[kEthernetHeaderLength + 9] = 35;
  const Bytes runt0800 = test::EthernetFrame({}, {}, 0x0800, Bytes{0x45, 0});
  // An IPv6 address whose text starts like a MAC column's.
  const Bytes v6 = test::Ipv6Frame("12:34:56:78:90:ab:0:1", "::1", 17, Bytes(8, 0));
  for (const Bytes& awkward : {Bytes{}, Bytes(5, 0x41), runt0800, protocol0, idpr, v6,
                               Bytes(kMaxFrameLength, 0x0D)}) {
    frames.insert(frames.end(), 2, awkward);
  }
  return frames;
}

void Fill(PacketStore& store, const std::vector<Bytes>& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const auto kind = i % 2 ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets;
    ASSERT_EQ(store.Insert(test::Record(frames[i], kind)), InsertOutcome::Stored);
  }
}

DumpSaveOptions Options(DataForm form, UiLanguage language = UiLanguage::English) {
  DumpSaveOptions options;
  options.render.form = form;
  options.language = language;
  return options;
}

TEST(DumpFile, EveryFormLoadsBackTheSameFramesKindsAndTimeTexts) {
  test::TempDir dir;
  PacketStore store;
  const std::vector<Bytes> frames = EdgeFrames();
  Fill(store, frames);
  for (const DataForm form : {DataForm::Text, DataForm::Dec, DataForm::Hex, DataForm::HexText}) {
    for (const UiLanguage language : {UiLanguage::English, UiLanguage::German}) {
      const std::string path = dir.File("dump.txt");
      ASSERT_TRUE(SaveDumpFile(path, store, Options(form, language)).ok);
      CollectingSink sink;
      const DumpLoadResult result = LoadDumpFile(path, sink, {form});
      EXPECT_EQ(result.end, DumpLoadEnd::Footer);
      ASSERT_EQ(sink.frames.size(), frames.size()) << static_cast<int>(form);
      for (std::size_t i = 0; i < frames.size(); ++i) {
        const PacketRef stored = store.Get(static_cast<std::int32_t>(i));
        EXPECT_EQ(sink.frames[i].bytes, frames[i]) << "form " << int(form) << " frame " << i;
        // Kinds come back from the MAC columns; frames too short for a destination address
        // show none and come back as Raw Sockets.
        if (frames[i].size() >= 6) {
          EXPECT_EQ(sink.frames[i].kind, stored.kind);
        }
        EXPECT_EQ(sink.frames[i].timeText, stored.timeText);
      }
    }
  }
}

TEST(DumpFile, HeaderAndFooterAreExactInBothLanguages) {
  test::TempDir dir;
  PacketStore store;
  Fill(store, {Bytes(20, 1)});
  ASSERT_TRUE(SaveDumpFile(dir.File("de.txt"), store, Options(DataForm::None, UiLanguage::German)).ok);
  const std::string text = ReadAll(dir.File("de.txt"));
  const std::string heading =
      "Type Size  Source MAC         Destination MAC          Source IP  Destination IP  sPort "
      "dPort  Date/Time";
  const std::string german = "Typ  Gr\u00f6\u00dfe Quell-MAC          Ziel-MAC                 "
                             "Quell-IP   Ziel-IP         sPort dPort  Datum/Uhrzeit";
  const std::string header =
      "Hollowbright VORMELT gespeicherte Informationen:\r\n\r\n" + german + "\r\n" +
      std::string(125, '-') + "\r\n";  // ... and the packet's own single line break
  EXPECT_EQ(text.substr(0, header.size()), header);
  EXPECT_NE(text.find("\r\n\r\n" + std::string(125, '-') + "\r\nTyp  Gr"), std::string::npos);
  EXPECT_NE(text.find("Datum/Uhrzeit\r\n1 Paket verzeichnet in den "), std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 14), "Millisekunden.");
  EXPECT_EQ(DumpFooter(UiLanguage::English, 2, 7),
            "\r\n\r\n" + std::string(122, '-') + "\r\n" + heading +
                "\r\n2 Packets listed in 7 milliseconds.");
}

TEST(DumpFile, AnAppendedFileLoadsUpToItsFirstFooter) {
  test::TempDir dir;
  PacketStore first, second;
  Fill(first, {Bytes(30, 1), Bytes(31, 2)});
  Fill(second, {Bytes(40, 3)});
  DumpSaveOptions options = Options(DataForm::Hex);
  ASSERT_TRUE(SaveDumpFile(dir.File("a.txt"), first, options).ok);
  options.append = true;
  ASSERT_TRUE(SaveDumpFile(dir.File("a.txt"), second, options).ok);
  CollectingSink sink;
  EXPECT_EQ(LoadDumpFile(dir.File("a.txt"), sink, {DataForm::Hex}).end, DumpLoadEnd::Footer);
  ASSERT_EQ(sink.frames.size(), 2u);
  EXPECT_EQ(sink.frames[1].bytes, Bytes(31, 2));

  // A deleted row is saved unless only listed packets are.
  ASSERT_TRUE(first.Delete(0));
  options.append = false;
  for (const bool onlyListed : {false, true}) {
    options.onlyListed = onlyListed;
    ASSERT_TRUE(SaveDumpFile(dir.File("b.txt"), first, options).ok);
    CollectingSink again;
    LoadDumpFile(dir.File("b.txt"), again, {DataForm::Hex});
    EXPECT_EQ(again.frames.size(), onlyListed ? 1u : 2u);
  }
}

// Every prefix of a file loads the records that are whole in it and nothing else; sizes up to
// 65,549 load, 65,550 ends loading quietly; a foreign character ends it at that record.
TEST(DumpFile, DamagedFilesKeepEveryRecordBeforeTheDamage) {
  test::TempDir dir;
  PacketStore store;
  Fill(store, {Bytes(20, 0xAB), Bytes(kMaxFrameLength, 0x5A), Bytes(18, 0xCD)});
  ASSERT_TRUE(SaveDumpFile(dir.File("d.txt"), store, Options(DataForm::HexText)).ok);
  const std::string text = ReadAll(dir.File("d.txt"));
  const auto load = [](std::string_view bytes, std::size_t& count) {
    CollectingSink sink;
    const auto span = std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    const DumpLoadResult result = LoadDumpBytes(span, sink, {DataForm::HexText});
    count = sink.frames.size();
    return result.end;
  };
  std::size_t count = 0;
  ASSERT_EQ(load(text, count), DumpLoadEnd::Footer);
  EXPECT_EQ(count, 3u);
  const std::size_t secondStart = text.find("\r\n\r\n", text.find("  [") + 3);
  for (std::size_t cut = 0; cut < text.size(); cut += cut < 2000 ? 1 : 997) {
    const DumpLoadEnd end = load(std::string_view(text).substr(0, cut), count);
    EXPECT_TRUE(end != DumpLoadEnd::Footer || count == 3) << cut;  // cut inside the footer
    EXPECT_LE(count, 3u);
    if (cut < secondStart) {
      EXPECT_LE(count, 1u) << cut;
    }
  }

  std::string tooBig = text;
  const std::size_t sizeAt = tooBig.find(std::to_string(kMaxFrameLength));
  tooBig.replace(sizeAt, 5, std::to_string(kMaxFrameLength + 1));
  EXPECT_EQ(load(tooBig, count), DumpLoadEnd::Unreadable);
  EXPECT_EQ(count, 1u);

  std::string foreign = text;
  foreign[foreign.rfind("CD ")] = 'Q';
  EXPECT_EQ(load(foreign, count), DumpLoadEnd::Unreadable);
  EXPECT_EQ(count, 2u);

  // The low digit at each edge of the hex digits: just past or before one is damage, never a
  // value (least of all 0xF); on the edge it is the digit.
  const std::size_t low = text.rfind("CD ") + 1;
  for (const char damaged : {'G', 'g', ':', '/', '@', '`'}) {
    std::string bad = text;
    bad[low] = damaged;
    EXPECT_EQ(load(bad, count), DumpLoadEnd::Unreadable) << damaged;
    EXPECT_EQ(count, 2u) << damaged;
  }
  for (const auto& [digit, value] : {std::pair{'F', 0xCF}, {'f', 0xCF}, {'A', 0xCA}, {'a', 0xCA},
                                     {'0', 0xC0}, {'9', 0xC9}}) {
    std::string good = text;
    good[low] = digit;
    CollectingSink sink;
    LoadDumpBytes(std::span(reinterpret_cast<const std::uint8_t*>(good.data()), good.size()), sink,
                  {DataForm::HexText});
    ASSERT_EQ(sink.frames.size(), 3u) << digit;
    EXPECT_EQ(sink.frames[2].bytes.back(), value) << digit;
  }
}

// Only a regular file is read, and only while its first lines can be a dump's header: a
// folder, a device without end and a FIFO nobody writes to are refused at once, and a file of
// one endless line or of many lines without a rule at its first bound.
TEST(DumpFile, WhatIsNoDumpFileIsRefusedWithoutReadingItThrough) {
  test::TempDir dir;
  CollectingSink sink;
  ASSERT_EQ(::mkfifo(dir.File("fifo").c_str(), 0600), 0);
  for (const std::string& path : {std::string("/dev/zero"), dir.path(), dir.File("fifo")}) {
    EXPECT_EQ(LoadDumpFile(path, sink, {}).end, DumpLoadEnd::NotRegularFile) << path;
  }
  const DumpLoadResult missing = LoadDumpFile(dir.File("missing"), sink, {});
  EXPECT_EQ(missing.end, DumpLoadEnd::OpenFailed);
  EXPECT_EQ(missing.error, ENOENT);
  std::ofstream(dir.File("line.txt")) << std::string(1 << 20, '-') + "x";
  std::string lines;
  for (int i = 0; i < 100; ++i) lines += "not a rule\r\n";
  std::ofstream(dir.File("lines.txt")) << lines + std::string(122, '-') + "\r\n";
  for (const char* name : {"line.txt", "lines.txt"}) {
    std::atomic<std::uint64_t> consumed{0};
    DumpLoadOptions options;
    options.progress = &consumed;
    EXPECT_EQ(LoadDumpFile(dir.File(name), sink, options).end, DumpLoadEnd::Unreadable) << name;
    EXPECT_LT(consumed.load(), 8192u) << name;
  }
  EXPECT_TRUE(sink.frames.empty());
}

// A save over an old dump that the disk has no room for keeps the old dump as it was, leaves
// no part file and names its reason. A stopped save is a whole dump of what it wrote.
TEST(DumpFile, AFailedSaveKeepsTheOldDumpAndAStoppedOneIsWhole) {
  test::SmallDisk disk(64 << 10);
  VORMELT_REQUIRE_SMALL_DISK(disk);
  PacketStore small, large;
  Fill(small, {Bytes(40, 1)});
  Fill(large, std::vector<Bytes>(10, Bytes(4000, 7)));
  const std::string path = disk.path() / "dump.txt";
  ASSERT_TRUE(SaveDumpFile(path, small, Options(DataForm::Hex)).ok);
  const std::string old = ReadAll(path);
  const DumpSaveResult full = SaveDumpFile(path, large, Options(DataForm::Hex));
  EXPECT_FALSE(full.ok);
  EXPECT_EQ(full.error, ENOSPC);
  EXPECT_EQ(ReadAll(path), old);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(disk.path()), {}), 1);

  const std::atomic<bool> stop{true};
  DumpSaveOptions options = Options(DataForm::Hex);
  options.cancel = &stop;
  const DumpSaveResult stopped = SaveDumpFile(path, large, options);
  EXPECT_TRUE(stopped.ok && stopped.stopped);
  CollectingSink sink;
  EXPECT_EQ(LoadDumpFile(path, sink, {DataForm::Hex}).end, DumpLoadEnd::Footer);
  EXPECT_EQ(sink.frames.size(), stopped.packets);
  EXPECT_NE(ReadAll(path).find(std::to_string(stopped.packets) + " Packets listed in"), std::string::npos);
}

TEST(DumpFile, AFullStoreEndsLoadingWithTheItemLimitAndTheFilterBoxIsHonoured) {
  test::TempDir dir;
  PacketStore source;
  Fill(source, {Bytes(30, 1), Bytes(30, 2), Bytes(30, 3), Bytes(30, 4)});
  ASSERT_TRUE(SaveDumpFile(dir.File("f.txt"), source, Options(DataForm::Text)).ok);

  // Capacity 3 (3 packets in all) against 4 and then exactly 3 packets, from a dump and from
  // a capture file: the rest is counted, and at the exact boundary nothing is left out.
  test::WritePcap(dir.File("f.pcap"), test::kLinkEthernet, {Bytes(30, 1), Bytes(30, 2), Bytes(30, 3), Bytes(30, 4)});
  for (const std::int32_t capacity : {3, 4}) {
    const std::uint64_t notTaken = 4 - capacity;
    PacketModeEngine fromDump(capacity);
    const auto result = fromDump.LoadDump(dir.File("f.txt"), {DataForm::Text}, false);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->end, DumpLoadEnd::ItemLimitReached);
    EXPECT_EQ(result->notTaken, notTaken);
    EXPECT_EQ(DumpLoadMessage(result->end), Text::DumpLoadItemLimit);
    EXPECT_EQ(fromDump.Store().RowCount(), std::size_t(capacity));
    EXPECT_TRUE(fromDump.Store().LimitReached());
    PacketModeEngine fromFile(capacity);
    ASSERT_TRUE(fromFile.StartFile(dir.File("f.pcap")));
    fromFile.Session().Wait();
    EXPECT_EQ(fromFile.Session().Status().status, CaptureStatus::ItemLimitReached);
    EXPECT_EQ(fromFile.Session().NotTaken(), notTaken) << capacity;
  }
  EXPECT_EQ(StoreLimitText(3, 1, UiLanguage::English),
            "The item limit of 3 packets has been reached. Packets not taken: 1");

  // Filtering on with nothing allowed: the box decides whether loaded packets meet it.
  PacketModeEngine engine;
  engine.Filter().SetFilteringEnabled(true);
  FilterValues none;
  none.allowOther = false;
  engine.Filter().SetAll(none);
  EXPECT_EQ(engine.LoadDump(dir.File("f.txt"), {DataForm::Text}, true)->skipped, 4u);
  EXPECT_EQ(engine.LoadDump(dir.File("f.txt"), {DataForm::Text}, false)->stored, 4u);
  EXPECT_EQ(engine.LoadDump(dir.File("missing.txt"), {DataForm::Text}, false)->end,
            DumpLoadEnd::OpenFailed);
}

}  // namespace
}  // namespace vormelt
