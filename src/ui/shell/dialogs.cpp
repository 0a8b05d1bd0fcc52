#include "ui/shell/dialogs.hpp"

#include <QMessageBox>

#include "common/settings_store.hpp"
#include "ui/shell/qt_text.hpp"

namespace vormelt::ui {
namespace {

MessageHandler& Handler() {
  static MessageHandler handler;
  return handler;
}

QMessageBox::Icon ToQt(MessageIcon icon) {
  switch (icon) {
    case MessageIcon::Information: return QMessageBox::Information;
    case MessageIcon::Warning: return QMessageBox::Warning;
    case MessageIcon::Question: return QMessageBox::Question;
    case MessageIcon::Stop: return QMessageBox::Critical;
    case MessageIcon::None: break;
  }
  return QMessageBox::NoIcon;
}

QMessageBox::StandardButtons ToQt(MessageButtons buttons) {
  switch (buttons) {
    case MessageButtons::YesNo: return QMessageBox::Yes | QMessageBox::No;
    case MessageButtons::YesNoCancel: return QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    case MessageButtons::Ok: break;
  }
  return QMessageBox::Ok;
}

QMessageBox::StandardButton ToQt(MessageAnswer answer) {
  switch (answer) {
    case MessageAnswer::Yes: return QMessageBox::Yes;
    case MessageAnswer::No: return QMessageBox::No;
    case MessageAnswer::Cancel: return QMessageBox::Cancel;
    case MessageAnswer::Ok: break;
  }
  return QMessageBox::Ok;
}

}  // namespace

MessageAnswer ShowMessage(QWidget* parent, const MessageRequest& request) {
  if (Handler()) return Handler()(request);
  QMessageBox box(ToQt(request.icon), request.caption, request.text, ToQt(request.buttons), parent);
  box.setEscapeButton(box.button(ToQt(request.onDismiss)));
  switch (box.exec()) {
    case QMessageBox::Yes: return MessageAnswer::Yes;
    case QMessageBox::No: return MessageAnswer::No;
    case QMessageBox::Cancel: return MessageAnswer::Cancel;
    case QMessageBox::Ok: return MessageAnswer::Ok;
    default: return request.onDismiss;
  }
}

void SetMessageHandler(MessageHandler handler) { Handler() = std::move(handler); }

void ShowNotice(QWidget* parent, Text caption, const QString& text, MessageIcon icon) {
  MessageRequest request;
  request.caption = T(caption);
  request.text = text;
  request.icon = icon;
  ShowMessage(parent, request);
}

bool SaveSettingsOrWarn(QWidget* parent, const ProgramSettings& settings,
                        const std::filesystem::path& file) {
  std::string error;
  if (SaveSettings(settings, file, &error)) return true;
  ShowNotice(parent, Text::ProgramTitle,
             FromCrLf(FormatText(Text::SettingsSaveFailed, Language(), file.c_str(), error.c_str())),
             MessageIcon::Warning);
  return false;
}

}  // namespace vormelt::ui
