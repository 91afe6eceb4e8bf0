#pragma once

#include "base/Op.h"
#include "model/DialogHost.h"

#include <QList>
#include <QStringList>

#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include <gtest/gtest.h>

namespace ostrel {

/// A user by script. Dialogs stay open until the test answers them. A dialog, a text for the clipboard or a folder to
/// show that was not announced fails the test, and so does an announced one that never came or is still open.
class FakeDialogHost final : public DialogHost
{
public:
    using Content = std::variant<DialogAlert, OpenPanel, SavePanel>;

    ~FakeDialogHost() override
    {
        EXPECT_EQ(m_dialogsToCome, 0) << "dialogs never came";
        EXPECT_EQ(m_textsToCome, 0) << "texts for the clipboard never came";
        EXPECT_EQ(m_foldersToCome, 0) << "folders to show never came";
        EXPECT_EQ(openDialogs(), 0) << "dialogs are still open";
    }

    /// Whether there is a window that sheets can be shown on.
    bool presentationWindow = true;
    int activations = 0;
    int refocusings = 0;

    void expectDialogs(int count) { m_dialogsToCome += count; }
    void expectDialog() { expectDialogs(1); }
    void expectPasteboard() { ++m_textsToCome; }
    void expectFolder() { ++m_foldersToCome; }

    int openDialogs() const { return int(m_open.size()); }
    /// The dialog in front. These fail the test, and answer an empty one, where there is none of that kind.
    DialogAlert alert() const { return front<DialogAlert>(); }
    OpenPanel openPanel() const { return front<OpenPanel>(); }
    SavePanel savePanel() const { return front<SavePanel>(); }
    /// How the dialog in front, or the last one that was, stands to the windows.
    std::optional<DialogPlacement> placement() const { return m_placement; }

    /// Presses a button of the alert in front.
    void answer(int response, const QStringList &fields = {})
    {
        static_cast<void>(front<DialogAlert>());
        close({.response = response, .text = fields});
    }
    /// Chooses something in the panel in front.
    void choose(const QString &path)
    {
        EXPECT_TRUE(m_open.isEmpty() || !std::holds_alternative<DialogAlert>(m_open.last()->content)) << "an alert";
        close({.response = DialogResponse::ok, .text = QStringList(path)});
    }
    /// Leaves the panel in front without a choice.
    void leave() { close({.response = DialogResponse::cancel, .text = {}}); }

    /// The texts that came, the last one last.
    const QList<std::pair<QString, PasteboardText>> &pasteboard() const { return m_texts; }
    const QStringList &openedFolders() const { return m_folders; }

    bool hasPresentationWindow() const override { return presentationWindow; }
    void activateApplication() override { ++activations; }
    void refocusPopoverWindow() override { ++refocusings; }

    Task<DialogAlertAnswer> showAlert(DialogAlert alert, DialogPlacement placement, std::stop_token stop) override
    {
        const auto answer = co_await show(std::move(alert), placement, std::move(stop));
        if (!answer)
            co_return {};
        co_return {.response = answer->response, .fields = answer->text};
    }
    Task<PanelAnswer> showOpenPanel(OpenPanel panel, DialogPlacement placement, std::stop_token stop) override
    {
        const auto answer = co_await show(std::move(panel), placement, std::move(stop));
        co_return panelAnswer(answer);
    }
    Task<PanelAnswer> showSavePanel(SavePanel panel, DialogPlacement placement, std::stop_token stop) override
    {
        const auto answer = co_await show(std::move(panel), placement, std::move(stop));
        co_return panelAnswer(answer);
    }

    void setPasteboard(const QString &text, PasteboardText kind) override
    {
        takeAnnounced(m_textsToCome, "text for the clipboard");
        m_texts.append({text, kind});
    }
    void openFolder(const QString &path) override
    {
        takeAnnounced(m_foldersToCome, "folder to show");
        m_folders.append(path);
    }

private:
    /// Of an alert, with the texts of its fields, or of a panel, with the one path.
    struct Answer {
        int response = DialogResponse::cancel;
        QStringList text;
    };
    struct Dialog {
        Content content;
        std::optional<Op<Answer>::Resolve> resolve;
    };

    static bool takeAnnounced(int &count, const char *what)
    {
        if (count == 0) {
            ADD_FAILURE() << "unexpected " << what;
            return false;
        }
        --count;
        return true;
    }

    static PanelAnswer panelAnswer(const std::optional<Answer> &answer)
    {
        return answer ? PanelAnswer{.response = answer->response, .path = answer->text.value(0)} : PanelAnswer();
    }

    Task<std::optional<Answer>> show(Content content, DialogPlacement placement, std::stop_token stop)
    {
        if (!takeAnnounced(m_dialogsToCome, "dialog"))
            co_return std::nullopt;
        m_placement = placement;
        auto dialog = std::make_shared<Dialog>(Dialog{.content = std::move(content), .resolve = {}});
        co_return co_await Op<Answer>(std::move(stop), [this, dialog](auto resolve) {
            dialog->resolve = std::move(resolve);
            m_open.append(dialog);
            return [this, dialog] { m_open.removeAll(dialog); };
        });
    }

    template <class T>
    T front() const
    {
        if (m_open.isEmpty() || !std::holds_alternative<T>(m_open.last()->content)) {
            ADD_FAILURE() << "no such dialog is in front";
            return {};
        }
        return std::get<T>(m_open.last()->content);
    }

    void close(Answer answer)
    {
        if (m_open.isEmpty()) {
            ADD_FAILURE() << "there is no dialog to answer";
            return;
        }
        const auto dialog = m_open.takeLast();
        (*dialog->resolve)(std::move(answer));
    }

    int m_dialogsToCome = 0;
    int m_textsToCome = 0;
    int m_foldersToCome = 0;
    QList<std::shared_ptr<Dialog>> m_open; ///< in the order of showing
    std::optional<DialogPlacement> m_placement;
    QList<std::pair<QString, PasteboardText>> m_texts;
    QStringList m_folders;
};

} // namespace ostrel
