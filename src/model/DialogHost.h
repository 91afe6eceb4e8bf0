#pragma once

#include "base/Error.h"
#include "base/Task.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <stop_token>

namespace ostrel {

/// What a dialog was answered with, by number.
namespace DialogResponse {
/// The first button of an alert; the second answers 1001, the third 1002.
inline constexpr int firstButton = 1000;
inline constexpr int secondButton = 1001;
inline constexpr int thirdButton = 1002;
/// An open or save panel in which something was chosen, and one that was left.
inline constexpr int ok = 1;
inline constexpr int cancel = 0;
} // namespace DialogResponse

/// One row of an alert's form: a label, where there is one, and a text field.
struct DialogField {
    QString label;
    QString placeholder;
    QString text;        ///< what stands in it at first
    bool secure = false; ///< what is typed is not shown
    int width = 320;     ///< points
    int height = 24;

    bool operator==(const DialogField &) const = default;
};

struct DialogAlert {
    QString message;
    QString informativeText;
    QStringList buttons; ///< in order; the first is the default one
    QList<DialogField> fields;

    bool operator==(const DialogAlert &) const = default;
};

struct DialogAlertAnswer {
    int response = DialogResponse::cancel; ///< of a button
    QStringList fields;                    ///< the texts of the alert's fields, in order
};

/// Chooses one file or one folder.
struct OpenPanel {
    QString message;
    QString prompt; ///< of the button that accepts; empty for the desktop's own word
    bool canChooseFiles = true;
    bool canChooseDirectories = false;
    bool canCreateDirectories = false;
    QStringList allowedFileTypes; ///< endings without the dot; empty allows all
    QString directory;            ///< where it starts; empty for the desktop's choice

    bool operator==(const OpenPanel &) const = default;
};

/// Chooses where a new file goes.
struct SavePanel {
    QString proposedFileName;

    bool operator==(const SavePanel &) const = default;
};

struct PanelAnswer {
    int response = DialogResponse::cancel;
    QString path; ///< absolute; empty where nothing was chosen
};

/// How a dialog stands to the program's windows.
enum class DialogPlacement {
    ApplicationModal, ///< on its own, in front of everything of ours
    Sheet,            ///< on the presentation window
};

enum class PasteboardText {
    Plain,
    Secret, ///< marked so that clipboard managers don't keep it
};

/// What the model asks of the desktop while it talks with the user. Plain values only. Main thread; nothing here blocks
/// it: dialogs are awaited while events go on being handled. A stopped dialog is taken away and answers cancel; the
/// task then ends inline.
class DialogHost
{
public:
    virtual ~DialogHost() = default;

    /// Whether a window of ours is there that a sheet can be shown on: the popover where it is visible, else the key
    /// window, else the main one, else the first visible one.
    virtual bool hasPresentationWindow() const = 0;
    /// Brings the program to the front, before a dialog that has no window of ours to stand on.
    virtual void activateApplication() = 0;
    /// Gives the popover the keyboard again, where it is visible.
    virtual void refocusPopoverWindow() = 0;

    virtual Task<DialogAlertAnswer> showAlert(DialogAlert alert, DialogPlacement placement, std::stop_token stop) = 0;
    virtual Task<PanelAnswer> showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop) = 0;
    virtual Task<PanelAnswer> showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop) = 0;

    /// Replaces what the clipboard holds.
    virtual void setPasteboard(const QString &text, PasteboardText kind) = 0;
    /// Shows a folder in the desktop's file manager. A failure is nobody's.
    virtual void openFolder(const QString &path) = 0;
};

} // namespace ostrel
