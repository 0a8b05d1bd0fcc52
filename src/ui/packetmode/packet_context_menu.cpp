// The row context menu: the menu itself and the reverse look-ups it starts; which items a record
// allows is RowActionsFor. Deleting is left to the caller, which owns the list.
#include "ui/packetmode/packet_context_menu.hpp"

#include <QAction>
#include <QMenu>
#include <string>
#include <utility>
#include <vector>

#include "packets/list_row.hpp"
#include "packets/store.hpp"
#include "ui/shell/qt_text.hpp"
#include "ui/shell/reverse_resolver.hpp"

namespace vormelt::ui {
namespace {

// The address as the list shows it: IPv4 header addresses, or an ARP packet's protocol
// addresses when they are Ethernet/IPv4 ones; empty otherwise (the look-up then fails).
std::string AddressOf(const PacketStore& store, std::uint32_t storeIndex, bool source) {
  const PacketRef packet = store.Get(static_cast<std::int32_t>(storeIndex));
  ListTextBuffer buffer{};
  return std::string(ListColumnText(packet, store.FilterTexts(static_cast<std::int32_t>(storeIndex)),
                                    source ? ListColumn::SourceIp : ListColumn::DestinationIp, buffer));
}

}  // namespace

PacketMenuState MenuStateFor(const PacketStore& store, std::uint32_t storeIndex) {
  return RowActionsFor(store.Get(static_cast<std::int32_t>(storeIndex)));
}

PacketMenuResult ShowPacketContextMenu(QWidget* parent, const QPoint& globalPos,
                                       const PacketStore& store, std::uint32_t storeIndex) {
  const PacketMenuState state = MenuStateFor(store, storeIndex);
  QMenu menu(parent);
  menu.setObjectName(QStringLiteral("packetContextMenu"));
  QAction* resolveSource = menu.addAction(T(Text::MenuReverseResolveSource));
  QAction* resolveDestination = menu.addAction(T(Text::MenuReverseResolveDestination));
  QMenu* tcpOptions = menu.addMenu(T(Text::MenuTcpSpecificOptions));
  tcpOptions->setObjectName(QStringLiteral("tcpOptionsMenu"));
  constexpr std::pair<Text, TcpCommand> kTcpItems[] = {
      {Text::TcpMenuNext, TcpCommand::Next},
      {Text::TcpMenuPrevious, TcpCommand::Previous},
      {Text::TcpMenuFirst, TcpCommand::First},
      {Text::TcpMenuLast, TcpCommand::Last},
      {Text::TcpMenuDeleteSame, TcpCommand::DeleteSame},
      {Text::TcpMenuDeleteDifferent, TcpCommand::DeleteDifferent},
  };
  std::vector<std::pair<QAction*, TcpCommand>> tcpActions;
  for (const auto& [text, command] : kTcpItems) {
    if (command == TcpCommand::DeleteSame) tcpOptions->addSeparator();
    tcpActions.emplace_back(tcpOptions->addAction(T(text)), command);
  }
  QAction* deletePacket = menu.addAction(T(Text::MenuDeletePacket));
  resolveSource->setEnabled(state.reverseResolve);
  resolveDestination->setEnabled(state.reverseResolve);
  tcpOptions->setEnabled(state.tcpOptions);

  const QAction* chosen = menu.exec(globalPos);
  if (chosen == deletePacket) return {PacketMenuChoice::DeletePacket};
  for (const auto& [action, command] : tcpActions) {
    if (chosen == action) return {PacketMenuChoice::Tcp, command};
  }
  if (chosen == resolveSource || chosen == resolveDestination) {
    // The address is read now: the row may be deleted or the list cleared while the look-up runs.
    ReverseResolveAndShow(parent, AddressOf(store, storeIndex, chosen == resolveSource));
  }
  return {};
}

}  // namespace vormelt::ui
