// TCP acknowledgement commands: each "Goto" repeats its search while the user agrees to free
// a found slot that has lost its row; the deletes ask first and report the count.
#include "ui/packetmode/tcp_commands.hpp"

#include "packetmode/tcp_ack.hpp"
#include "ui/shell/dialogs.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

struct MoveTexts {
  AckMove move;
  Text nothing;
  Text gone;
  Text already;  // only First and Last use it
};

MoveTexts TextsFor(TcpCommand command) {
  switch (command) {
    case TcpCommand::Next: return {AckMove::Next, Text::TcpNoHigher, Text::TcpNextGone, Text::TcpNoHigher};
    case TcpCommand::Previous:
      return {AckMove::Previous, Text::TcpNoPrevious, Text::TcpPreviousGone, Text::TcpNoPrevious};
    case TcpCommand::First: return {AckMove::First, Text::TcpNoSameAck, Text::TcpFirstGone, Text::TcpAlreadyFirst};
    default: return {AckMove::Last, Text::TcpNoSameAck, Text::TcpLastGone, Text::TcpAlreadyLast};
  }
}

void ShowInvalid(QWidget* parent) {
  ShowNotice(parent, Text::TcpInvalidPacketCaption, T(Text::TcpInvalidPacket), MessageIcon::Stop);
}

bool Ask(QWidget* parent, Text caption, Text question) {
  return ShowMessage(parent, {T(caption), T(question), MessageIcon::Question, MessageButtons::YesNo,
                              MessageAnswer::No}) == MessageAnswer::Yes;
}

void Move(QWidget* parent, PacketStore& store, std::int32_t selected, const MoveTexts& texts,
          const TcpCommandHooks& hooks) {
  for (;;) {
    const AckResult result = FindSameAck(store, selected, texts.move);
    switch (result.outcome) {
      case AckOutcome::InvalidTcp: ShowInvalid(parent); return;
      case AckOutcome::NothingFound:
        ShowNotice(parent, Text::TcpFoundNothingCaption, T(texts.nothing), MessageIcon::Information);
        return;
      case AckOutcome::AlreadySelected:
        // Both say "First sequence": the caption has always been shared.
        ShowNotice(parent, Text::TcpFirstSequenceCaption, T(texts.already), MessageIcon::Information);
        return;
      case AckOutcome::Found: hooks.selectIndex(result.index); return;
      case AckOutcome::Gone:
        if (!Ask(parent, Text::TcpPacketGoneCaption, texts.gone)) return;
        FreeGoneSlot(store, result.index);
        hooks.rowsRemoved();
        break;
    }
  }
}

void Delete(QWidget* parent, PacketStore& store, std::int32_t selected, bool same,
            const TcpCommandHooks& hooks) {
  if (!Ask(parent, Text::TcpAreYouSureCaption,
           same ? Text::TcpDeleteSameQuestion : Text::TcpDeleteDifferentQuestion)) {
    return;
  }
  const std::optional<std::size_t> deleted = DeleteByAck(store, selected, same);
  if (!deleted) {
    ShowInvalid(parent);
    return;
  }
  hooks.rowsRemoved();
  ShowNotice(parent, Text::TcpDeletedItemsCaption,
             TF(Text::TcpDeletedItems, static_cast<unsigned>(*deleted)), MessageIcon::Information);
}

}  // namespace

void RunTcpCommand(QWidget* parent, PacketStore& store, std::int32_t selected, TcpCommand command,
                   const TcpCommandHooks& hooks) {
  if (command == TcpCommand::DeleteSame || command == TcpCommand::DeleteDifferent) {
    Delete(parent, store, selected, command == TcpCommand::DeleteSame, hooks);
    return;
  }
  Move(parent, store, selected, TextsFor(command), hooks);
}

}  // namespace vormelt::ui
