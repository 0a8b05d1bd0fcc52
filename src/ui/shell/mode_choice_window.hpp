// The mode-choice window: a borderless dark green window with the title picture (drag handle),
// the maker's logo, one button per mode, Tools, Help, Exit and "Remember my choice". What each
// button does to the settings is decided by app/startup; this window only shows and asks.
#pragma once

#include <QDialog>
#include <QPoint>
#include <QUrl>

#include "app/startup.hpp"

class QCheckBox;
class QLabel;
class QMenu;
class QPushButton;
class QTimer;
class QVBoxLayout;

namespace vormelt::ui {

// The maker's web page, opened by a click on the logo.
inline constexpr char kMakerPage[] = "https://hollowbright.example/vormelt";

class ModeChoiceWindow : public QDialog {
 public:
  // The window writes the buttons' effects into `settings` and `decision`, which outlive it.
  ModeChoiceWindow(ProgramSettings& settings, StartupDecision& decision,
                   QWidget* parent = nullptr);
  ~ModeChoiceWindow() override;

  // Exit until a mode or the encoder was chosen, so any other way out counts as "X Exit X".
  ModeChoiceResult choice() const { return choice_; }

  // The controls, for tests and for the start-up screenshots.
  QPushButton* modeButton(ModeChoiceButton which) const;
  QPushButton* toolsButton() const { return tools_; }
  QMenu* toolsMenu() const { return toolsMenu_; }
  QPushButton* helpButton() const { return help_; }
  QCheckBox* rememberBox() const { return remember_; }
  QLabel* titlePicture() const { return title_; }
  QLabel* logo() const { return logo_; }
  bool isDragging() const;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void done(int result) override;

 private:
  void BuildWidgets();
  QPushButton* AddModeButton(QVBoxLayout* layout, ModeChoiceButton which, Text label);
  void Choose(ModeChoiceButton button);
  void ShowToolsMenu();
  void ShowHelp();
  void UpdateOutline();
  void PlaceWindow();
  void StartDrag(QPoint globalCursor);
  void FollowCursor();
  void StopDrag();
  bool HandleTitleEvent(QEvent* event);
  bool HandleLogoEvent(QEvent* event);

  ProgramSettings& settings_;
  StartupDecision& decision_;
  ModeChoiceResult choice_ = ModeChoiceResult::Exit;
  QLabel* title_ = nullptr;
  QLabel* logo_ = nullptr;
  QPushButton* modeButtons_[4] = {};
  QPushButton* tools_ = nullptr;
  QMenu* toolsMenu_ = nullptr;
  QPushButton* help_ = nullptr;
  QPushButton* exit_ = nullptr;
  QCheckBox* remember_ = nullptr;
  QTimer* dragTimer_ = nullptr;
  QPoint grabOffset_;  // cursor position less the window's top-left corner at the press
};

}  // namespace vormelt::ui
