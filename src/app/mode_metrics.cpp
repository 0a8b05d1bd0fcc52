// Families are built fresh at every scrape from copies of the counters; the statistics table
// is read under its lock, as the window's updater reads it.
#include "app/mode_metrics.hpp"

#include <string>

#include "capture/mode_capture.hpp"
#include "filemode/engine.hpp"
#include "packetmode/packet_mode_engine.hpp"
#include "statistics/engine.hpp"
#include "statistics/lists.hpp"

namespace vormelt::metrics {
namespace {

Family One(std::string name, std::string help, Kind kind, double value,
           std::vector<std::pair<std::string, std::string>> labels = {}) {
  return Family{std::move(name), std::move(help), kind, {Sample{std::move(labels), value}}};
}

}  // namespace

static void AddCapture(std::vector<Family>& out, std::string_view interface, std::uint64_t packets,
                std::uint64_t bytes, std::uint64_t dropped) {
  const std::vector<std::pair<std::string, std::string>> labels{{"interface", std::string(interface)}};
  out.push_back(One("vormelt_capture_packets_total", "Packets the capture handed to the mode.",
                    Kind::Counter, static_cast<double>(packets), labels));
  out.push_back(One("vormelt_capture_bytes_total", "Bytes on the wire of those packets.",
                    Kind::Counter, static_cast<double>(bytes), labels));
  out.push_back(One("vormelt_capture_dropped_total",
                    "Packets the kernel dropped because the program did not keep up.", Kind::Counter,
                    static_cast<double>(dropped), labels));
}

void AddCapture(std::vector<Family>& out, std::string_view interface, const ModeCapture& capture) {
  AddCapture(out, interface, capture.Frames(), capture.Bytes(), capture.Dropped());
}

static void AddStore(std::vector<Family>& out, std::uint64_t stored, std::uint64_t limit) {
  out.push_back(One("vormelt_store_packets", "Packets held in Packet Mode's store.", Kind::Gauge,
                    static_cast<double>(stored)));
  out.push_back(One("vormelt_store_limit_packets", "The most packets the store holds.", Kind::Gauge,
                    static_cast<double>(limit)));
}

void AddStatistics(std::vector<Family>& out, const statistics::StatisticsEngine& engine) {
  Family bytes{"vormelt_address_bytes_total", "Bytes sent from and to an address.", Kind::Counter, {}};
  Family packets{"vormelt_address_packets_total", "Packets sent from and to an address.",
                 Kind::Counter, {}};
  engine.WithTables([&](const statistics::StatisticsTables& tables) {
    for (std::int32_t slot = 0; slot < tables.ip.Used(); ++slot) {
      const statistics::IpRecord& record = tables.ip.At(slot);
      const std::string address = record.address.ToString();
      for (const bool from : {true, false}) {
        const std::vector<std::pair<std::string, std::string>> labels{
            {"address", address}, {"direction", from ? "from" : "to"}};
        bytes.samples.push_back({labels, static_cast<double>(from ? record.bytesFrom : record.bytesTo)});
        packets.samples.push_back({labels, static_cast<double>(from ? record.packetsFrom : record.packetsTo)});
      }
    }
  });
  out.push_back(std::move(bytes));
  out.push_back(std::move(packets));
  out.push_back(One("vormelt_statistics_packets_total", "Packets Statistical Mode counted.",
                    Kind::Counter, static_cast<double>(engine.PacketSequence())));
}

void AddFileMode(std::vector<Family>& out, const filemode::FileModeCounters& counters) {
  out.push_back(One("vormelt_files_written_total", "Files File Mode wrote whole.", Kind::Counter,
                    static_cast<double>(counters.filesWritten)));
  out.push_back(One("vormelt_files_failed_total", "Bodies that could not be written whole.",
                    Kind::Counter, static_cast<double>(counters.filesFailed)));
  out.push_back(One("vormelt_files_incomplete_total", "Files written with a part of the body missing.",
                    Kind::Counter, static_cast<double>(counters.filesIncomplete)));
  out.push_back(One("vormelt_files_bytes_written_total", "Bytes of the files written.",
                    Kind::Counter, static_cast<double>(counters.bytesWritten)));
}

static void AddLogging(std::vector<Family>& out, std::uint64_t filesBegun, std::uint64_t failures) {
  out.push_back(One("vormelt_log_files_total", "Log files automatic logging began.", Kind::Counter,
                    static_cast<double>(filesBegun)));
  out.push_back(One("vormelt_log_failures_total", "Log writes that failed.", Kind::Counter,
                    static_cast<double>(failures)));
}

void AddPacketMode(std::vector<Family>& out, const PacketModeEngine& engine, bool logging) {
  AddStore(out, static_cast<std::uint64_t>(engine.Store().ItemCount()),
           static_cast<std::uint64_t>(engine.Store().Capacity()));
  if (!logging) return;
  const LogStatus logged = engine.LoggingStatus();
  AddLogging(out, static_cast<std::uint64_t>(logged.filesBegun),
             static_cast<std::uint64_t>(logged.failureEpisodes));
}

}  // namespace vormelt::metrics
