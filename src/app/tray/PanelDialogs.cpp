#include "app/tray/PanelDialogs.h"

#include "base/Op.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFileDialog>
#include <QGuiApplication>
#include <QMimeData>
#include <QUrl>
#include <QWindow>

namespace ostrel {

namespace {

/// What clipboard managers look for before they keep a text.
const QString secretHint = QStringLiteral("x-kde-passwordManagerHint");

QStringList nameFilters(const QStringList &fileTypes)
{
    if (fileTypes.isEmpty())
        return {};
    QStringList patterns;
    for (const QString &type : fileTypes)
        patterns.append(QStringLiteral("*.%1").arg(type));
    return {QStringLiteral("%1 (%1)").arg(patterns.join(u' '))};
}

/// It is let go of in the midst of its own signal.
std::shared_ptr<QFileDialog> makeDialog()
{
    return {new QFileDialog, [](QFileDialog *dialog) { dialog->deleteLater(); }};
}

} // namespace

bool PanelDialogs::hasPresentationWindow() const
{
    return m_panel != nullptr && m_panel->isVisible();
}

void PanelDialogs::activateApplication()
{
    // An alert of ours is drawn on the panel, so the panel it is that has to be there.
    if (m_openPanel && !hasPresentationWindow())
        m_openPanel();
}

void PanelDialogs::refocusPopoverWindow()
{
    if (hasPresentationWindow())
        m_panel->requestActivate();
}

Task<DialogAlertAnswer> PanelDialogs::showAlert(DialogAlert alert, DialogPlacement /*placement*/, std::stop_token stop)
{
    return m_sheet.show(std::move(alert), std::move(stop));
}

Task<PanelAnswer> PanelDialogs::showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop)
{
    const auto dialog = makeDialog();
    dialog->setWindowTitle(panel.message.isEmpty() ? QCoreApplication::translate("PanelDialogs", "Choose a folder")
                                                   : panel.message);
    dialog->setFileMode(panel.canChooseDirectories && !panel.canChooseFiles ? QFileDialog::Directory
                                                                            : QFileDialog::ExistingFile);
    dialog->setOption(QFileDialog::ShowDirsOnly, panel.canChooseDirectories && !panel.canChooseFiles);
    dialog->setNameFilters(nameFilters(panel.allowedFileTypes));
    if (!panel.prompt.isEmpty())
        dialog->setLabelText(QFileDialog::Accept, panel.prompt);
    if (!panel.directory.isEmpty())
        dialog->setDirectory(panel.directory);
    return choose(dialog, placement, std::move(stop));
}

Task<PanelAnswer> PanelDialogs::showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop)
{
    const auto dialog = makeDialog();
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->selectFile(panel.proposedFileName);
    return choose(dialog, placement, std::move(stop));
}

Task<PanelAnswer> PanelDialogs::choose(std::shared_ptr<QFileDialog> dialog, DialogPlacement placement,
                                       std::stop_token stop)
{
    dialog->winId(); // makes its window, which then belongs to the panel's
    if (hasPresentationWindow())
        dialog->windowHandle()->setTransientParent(m_panel);
    dialog->setWindowModality(placement == DialogPlacement::Sheet ? Qt::WindowModal : Qt::ApplicationModal);
    const auto result = co_await Op<int>(stop, [&dialog](const Op<int>::Resolve &resolve) {
        QObject::connect(dialog.get(), &QDialog::finished, resolve);
        dialog->open();
        return [dialog] { dialog->hide(); };
    });
    const QStringList files = dialog->selectedFiles();
    if (result != int(QDialog::Accepted) || files.isEmpty())
        co_return PanelAnswer{};
    co_return PanelAnswer{.response = DialogResponse::ok, .path = files.constFirst()};
}

void PanelDialogs::setPasteboard(const QString &text, PasteboardText kind)
{
    auto data = std::make_unique<QMimeData>();
    data->setText(text);
    if (kind == PasteboardText::Secret)
        data->setData(secretHint, QByteArrayLiteral("secret"));
    QGuiApplication::clipboard()->setMimeData(data.release()); // the clipboard's own now
}

void PanelDialogs::openFolder(const QString &path)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

} // namespace ostrel
