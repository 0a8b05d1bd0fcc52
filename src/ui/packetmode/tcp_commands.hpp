// The "TCP specific options" commands of the row menu: the questions and messages around the
// acknowledgement engine (packetmode/tcp_ack). Moving and deleting rows is left to the window.
#pragma once

#include <cstdint>
#include <functional>

class QWidget;

namespace vormelt {
class PacketStore;
}

namespace vormelt::ui {

enum class TcpCommand { Next, Previous, First, Last, DeleteSame, DeleteDifferent };

struct TcpCommandHooks {
  std::function<void(std::int32_t)> selectIndex;  // select, focus and scroll to a store index
  std::function<void()> rowsRemoved;               // rows left the store behind the list's back
};

void RunTcpCommand(QWidget* parent, PacketStore& store, std::int32_t selected, TcpCommand command,
                   const TcpCommandHooks& hooks);

}  // namespace vormelt::ui
