// The Packet Mode window's refresh (new rows, counters, caption, messages) and its list: the
// selection, the row menu and the Delete key.
#include "ui/packetmode/packet_mode_window_impl.hpp"

#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QScrollBar>

namespace vormelt::ui {

void PacketModeWindow::Impl::SelectStoreIndex(std::int32_t index) {
  model->syncWithStore();
  const int row = model->rowOfStoreIndex(index);
  if (row < 0) return;
  followNewRows = false;
  list->selectRow(row);
  list->scrollTo(model->index(row, 0));
  list->setFocus();
}

void PacketModeWindow::Impl::BeginRefreshing() {
  UpdateControls();
  refreshTimer.start();
}

void PacketModeWindow::refresh() {
  Impl& d = *impl_;
  // Read before catching up: once listening is clear, every packet of that capture is in the
  // store, so the catch-up below is the last one needed.
  const bool capturing = isCapturing();
  d.capture.Session().newData.store(false);
  d.engine.Logger().ClearOnOwnerThread();
  const int appended = d.model->syncWithStore();
  if (appended > 0 && d.followNewRows) d.list->scrollToBottom();
  if (appended > 0 && d.settings.packetMode.newPacketSound) QApplication::beep();
  d.UpdateCounters();
  d.ShowPendingMessages();
  d.shell->Tick();
  if (capturing || d.dumps.Busy()) return;
  d.refreshTimer.stop();
  d.fileProgress->hide();
  d.UpdateControls();
}

void PacketModeWindow::Impl::UpdateCounters() {
  const CaptureStatusSnapshot status = capture.Status();
  statusText->setText(QString::fromStdString(StatusText(status, Language())));
  const auto allocated = static_cast<std::int64_t>(store.AllocatedMemory());
  memoryText->setText(allocated == 0 ? QString()
                                     : QString::fromStdString(format::ByteSize(allocated)));
  gauge->setValue(std::min(store.ItemCount(), kGaugeMaximum));
  if (const double done = dumps.Progress(); done >= 0) {
    fileProgress->show();
    fileProgress->setValue(static_cast<int>(done * kFileProgressMaximum));
  } else if (capture.ReadingFile() && capture.BytesTotal() > 0) {
    const double done =
        static_cast<double>(capture.BytesRead()) / static_cast<double>(capture.BytesTotal());
    fileProgress->setValue(static_cast<int>(std::min(1.0, done) * kFileProgressMaximum));
  }
  const QString caption = window.captionText();
  if (window.windowTitle() != caption) window.setWindowTitle(caption);
  shell->SetTrayTip(caption);
}

QString PacketModeWindow::captionText() const {
  const CaptureStatusSnapshot status = impl_->capture.Status();
  if (status.status != CaptureStatus::Listening) return T(Text::PacketCaptionStopped);
  const std::string statusText = StatusText(status, Language());
  return TF(Text::PacketCaptionItems, static_cast<long>(impl_->model->rowCount()),
            statusText.c_str());
}

void PacketModeWindow::Impl::UpdateControls() {
  const bool capturing = window.isCapturing();
  // A dump file being loaded or saved fills or reads the store: nothing else may change it.
  const bool busy = dumps.Busy();
  shell->Tick();
  clearAction->setEnabled(!busy);
  loadDumpAction->setEnabled(!capturing && !busy);
  saveDumpAction->setEnabled(!busy);
  saveCaptureAction->setEnabled(!busy);
}

// Capture threads only queue their messages; they are shown here, one modal box at a time.
// The timer keeps ticking inside a box's loop, so a second tick must not show the next one.
void PacketModeWindow::Impl::ShowPendingMessages() {
  // Once per failure episode (until a write succeeds again), naming the file that failed.
  if (const LogStatus logged = engine.LoggingStatus();
      !showingMessages && logged.failureEpisodes > logFailuresShown) {
    logFailuresShown = logged.failureEpisodes;
    showingMessages = true;
    ShowNotice(&window, Text::LogInvalidCaption,
               TF(Text::LogWriteFailed, (logged.failedFile + ": " + logged.failureReason).c_str()),
               MessageIcon::Warning);
    showingMessages = false;
  }
}

std::vector<CaptureMessage> PacketModeWindow::Impl::TakeMessages() {
  return capture.Messages().Drain();
}

// ---- list selection and row menu ------------------------------------------------------------

std::int32_t PacketModeWindow::Impl::SelectedStoreIndex() const {
  const QModelIndexList rows = list->selectionModel()->selectedRows();
  return rows.isEmpty() ? -1 : model->storeIndexAt(rows.front().row());
}

void PacketModeWindow::Impl::ShowSelectedPacket() {
  const std::int32_t index = SelectedStoreIndex();
  if (index < 0) {
    details->clearDetails();
    return;
  }
  details->showPacket(static_cast<std::uint32_t>(index));
}

void PacketModeWindow::Impl::ShowRowMenu(const QPoint& globalPos) {
  const std::int32_t index = SelectedStoreIndex();
  if (index < 0) return;
  const PacketMenuResult chosen =
      ShowPacketContextMenu(&window, globalPos, store, static_cast<std::uint32_t>(index));
  if (chosen.choice == PacketMenuChoice::DeletePacket) DeletePacket(index);
  if (chosen.choice != PacketMenuChoice::Tcp) return;
  TcpCommandHooks hooks;
  hooks.selectIndex = [this](std::int32_t found) { SelectStoreIndex(found); };
  hooks.rowsRemoved = [this] {
    model->syncWithStore();
    ShowSelectedPacket();
  };
  RunTcpCommand(&window, engine.Store(), index, chosen.tcp, hooks);
}

void PacketModeWindow::Impl::DeleteSelectedPacket() {
  const std::int32_t index = SelectedStoreIndex();
  if (index >= 0) DeletePacket(index);
}

// The pane must not keep showing a packet that left the list.
void PacketModeWindow::Impl::DeletePacket(std::int32_t index) {
  if (model->deletePacket(index)) ShowSelectedPacket();
}

bool PacketModeWindow::eventFilter(QObject* watched, QEvent* event) {
  Impl& d = *impl_;
  const bool onList = watched && (watched == d.list || watched == d.listViewport);
  if (onList && event->type() == QEvent::KeyPress &&
      static_cast<const QKeyEvent&>(*event).matches(QKeySequence::Delete)) {
    d.DeleteSelectedPacket();
    return true;
  }
  if (!onList || event->type() != QEvent::ContextMenu)
    return QMainWindow::eventFilter(watched, event);
  const auto& menuEvent = static_cast<const QContextMenuEvent&>(*event);
  // A mouse-opened menu follows the pointer; one opened from the keyboard has no pointer to
  // follow and opens at a fixed spot inside the list.
  const QPoint at = menuEvent.reason() == QContextMenuEvent::Mouse
                        ? menuEvent.globalPos()
                        : d.list->mapToGlobal(kKeyboardMenuOffset);
  if (menuEvent.reason() == QContextMenuEvent::Mouse) {
    const QModelIndex hit = d.list->indexAt(d.list->viewport()->mapFromGlobal(at));
    if (hit.isValid()) d.list->selectRow(hit.row());
  }
  d.ShowRowMenu(at);
  return true;
}

}  // namespace vormelt::ui
