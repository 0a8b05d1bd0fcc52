// Feeds arbitrary frames to the list row, row menu rule, decoder and renderer at every level,
// form and field; the list and the pane must agree on the packet's size.
// The record is laid out exactly as the store keeps it (spare bytes included, nothing more),
// so any read beyond the record shows up under the address sanitizer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "packets/decoder.hpp"
#include "packets/list_row.hpp"
#include "packets/render.hpp"
#include "packets/row_actions.hpp"

using namespace vormelt;

namespace {

void CheckSelection(std::optional<TextSelection> selection) {
  if (selection && (selection->start < 0 || selection->end < 0)) std::abort();
}

void ListEverything(PacketRef packet, const PacketDetails& details) {
  ListTextBuffer buffer{};
  for (int column = 0; column < kListColumnCount; ++column) {
    ListColumnText(packet, nullptr, static_cast<ListColumn>(column), buffer);
  }
  if (ListColumnText(packet, nullptr, ListColumn::Size, buffer) != details.packetSize) std::abort();
  RowActionsFor(packet);
}

void DecodeEverything(PacketRef packet, UiLanguage language) {
  for (int level = 0; level < kDataLevelCount; ++level) {
    const auto dataLevel = static_cast<DataLevel>(level);
    const PacketDetails d = DecodePacket(packet, language, dataLevel, "00:11:22:33:44:55", "");
    if (d.dataBytes.size() > packet.frameLength) std::abort();
    if (level == 0) ListEverything(packet, d);
    std::string dump;
    for (const DumpForm form : {DumpForm::Text, DumpForm::Dec, DumpForm::Hex}) {
      AppendPaneDump(dump, d.dataBytes, form);
      for (int field = 0; field <= static_cast<int>(kLastDetailField); ++field) {
        for (const std::uint8_t protocol : {kProtocolIcmp, kProtocolTcp, kProtocolUdp, kProtocolIcmpv6}) {
          CheckSelection(FieldSelection(packet, dataLevel, form,
                                        static_cast<DetailField>(field), protocol));
        }
      }
    }
    HexViewerTexts texts;
    if (BuildHexViewerTexts(d.dataBytes, texts)) {
      CheckSelection(MirrorHexSelection({0, static_cast<int>(texts.hex.size())}));
    }
  }
}

void RenderEverything(PacketRef packet) {
  std::string out;
  for (int form = 0; form <= static_cast<int>(DataForm::HexText); ++form) {
    for (int level = 0; level < kDataLevelCount; ++level) {
      PacketRenderer renderer({static_cast<DataForm>(form),
                               level % 2 ? IpGap::Wide : IpGap::Narrow,
                               static_cast<DataLevel>(level)});
      out.clear();
      if (renderer.Append(packet, out) != out.size()) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // The first byte chooses how the packet was captured, the language and whether to force an
  // IPv4, ARP or IPv6 EtherType (random bytes rarely hit one); the rest is the frame.
  const std::uint8_t control = data[0];
  const auto kind = (control & 1) ? InterfaceKind::PacketDriver : InterfaceKind::RawSockets;
  const auto language = (control & 2) ? UiLanguage::German : UiLanguage::English;
  std::vector<std::uint8_t> frame(data + 1, data + std::min<size_t>(size, kMaxFrameLength + 1));
  if ((control & 12) && frame.size() >= kEthernetHeaderLength) {  // 4: IPv4, 4 + 8: ARP, 8: IPv6
    const std::uint16_t type = (control & 4) ? ((control & 8) ? 0x0806 : 0x0800) : 0x86DD;
    frame[12] = static_cast<std::uint8_t>(type >> 8);
    frame[13] = static_cast<std::uint8_t>(type);
  }
  const RecordBuffer record(frame, kind, "fuzz");
  DecodeEverything(record.ref(), language);
  RenderEverything(record.ref());
  return 0;
}
