#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "base/TaskSlot.h"
#include "observer/ArchiveTarget.h"

#include <QObject>
#include <QString>
#include <optional>
#include <stop_token>

namespace ostrel {

class ModelState;
class NativeModals;
class ObserverControl;

/// Where the archive lies: what the observer says of it, and the card on which another place is chosen. Main thread,
/// which is never blocked: operations return at once, and what comes of them shows in the state, its signals and
/// `ModelState::archiveMessage`.
///
/// A bucket's secret exists here from its typing until the card closes, and in the request. It is neither logged nor
/// stored, and the observer never tells it.
class ArchiveTargetArea : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        ModelState &state;
        ObserverControl &observer;
        NativeModals &modals;
    };

    /// What the dependencies name outlives this object.
    explicit ArchiveTargetArea(Dependencies dependencies);
    ~ArchiveTargetArea() override;

    /// Whether the observer lets its user choose, as far as it was asked.
    bool archiveTargetOffered() const { return m_offered; }
    /// As the observer last told it; none where it didn't, or has told of a mistake in it.
    const std::optional<ArchiveTarget> &archiveTarget() const { return m_target; }
    /// What is being chosen; none while the card is closed.
    const std::optional<ArchiveTarget> &archiveTargetDraft() const { return m_draft; }
    /// Does nothing while the card is closed.
    void setArchiveTargetDraft(const ArchiveTarget &draft);
    /// Another place is being taken over.
    bool archiveTargetBusy() const { return m_busy; }
    /// Whether the draft's secret may be left out, because the observer keeps the one that belongs there.
    bool archiveTargetSecretIsKept() const;

    /// Asks the observer. An observer that can't be asked changes nothing; one that refuses is the archive's error, and
    /// may be given another place.
    void refreshArchiveTarget();
    /// Opens the card where a place may be chosen.
    void openArchiveTargetCard();
    /// Closes it and forgets what was typed. A place that is being taken over is seen through.
    void closeArchiveTargetCard();
    /// Asks for the draft's folder.
    void chooseArchiveTargetFolder();
    /// Takes the draft over and closes the card. Before an archive's place becomes another its user is asked. A mistake
    /// in the draft, or a refusal, is the archive's error, and the card stays.
    void saveArchiveTarget();

    /// What becomes of an archive whose place becomes that one; none where there is nothing to say.
    std::optional<QString> consequenceOf(const ArchiveTarget &next) const;

    /// As `refreshArchiveTarget`, to be awaited; stop it before this object goes.
    /// @return the place, none where nobody may choose it, or why it could not be told
    Task<Result<std::optional<ArchiveTarget>>> fetchArchiveTarget(std::stop_token stop);
    /// Takes a place over, without a question; stop it before this object goes.
    Task<Result<ArchiveTarget>> storeArchiveTarget(ArchiveTarget target, std::stop_token stop);

Q_SIGNALS:
    /// Also for `archiveTargetOffered`.
    void archiveTargetChanged();
    void archiveTargetDraftChanged();
    void archiveTargetBusyChanged();

private:
    Task<> refresh(std::stop_token stop);
    Task<> chooseFolder(std::stop_token stop);
    Task<> save(ArchiveTarget next, std::stop_token stop);
    Task<bool> isConfirmed(ArchiveTarget next, std::stop_token stop);
    void setTarget(bool offered, const std::optional<ArchiveTarget> &target);
    void setDraft(const std::optional<ArchiveTarget> &draft);
    void setBusy(bool busy);

    const Dependencies m_with;
    bool m_offered = false;
    std::optional<ArchiveTarget> m_target;
    std::optional<ArchiveTarget> m_draft;
    bool m_busy = false;
    TaskSlot m_dialog;
    TaskSlot m_refresh;
    TaskSlot m_save;
};

} // namespace ostrel
