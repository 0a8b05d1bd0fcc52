// The packet list's row context menu: reverse resolving the row's addresses, the TCP options
// submenu, deleting the row. Resolving runs off the window's thread.
#pragma once

#include <QPoint>
#include <cstdint>

#include "packets/row_actions.hpp"
#include "ui/packetmode/tcp_commands.hpp"

class QWidget;

namespace vormelt {
class PacketStore;
}

namespace vormelt::ui {

// Which items are enabled for the record at `storeIndex` (the rule is RowActionsFor).
using PacketMenuState = RowActions;
PacketMenuState MenuStateFor(const PacketStore& store, std::uint32_t storeIndex);

enum class PacketMenuChoice { None, DeletePacket, Tcp };

struct PacketMenuResult {
  PacketMenuChoice choice = PacketMenuChoice::None;
  TcpCommand tcp = TcpCommand::Next;  // when choice is Tcp
};

// Shows the menu at `globalPos` for the record; handles the resolve items itself (results in a
// message box when the look-up ends) and returns what the caller must do.
PacketMenuResult ShowPacketContextMenu(QWidget* parent, const QPoint& globalPos,
                                       const PacketStore& store, std::uint32_t storeIndex);

}  // namespace vormelt::ui
