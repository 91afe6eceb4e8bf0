#include "model/ArchiveTargetArea.h"

#include "base/Fault.h"
#include "base/Paths.h"
#include "model/NativeModals.h"
#include "model/ObserverRequest.h"
#include "observer/ArchiveTargetRules.h"
#include "observer/LocalObserverAPI.h"

namespace ostrel {

namespace {

using Kind = ArchiveTarget::Kind;

OpenPanel folderPanel(const QString &start)
{
    return {.message = {},
            .prompt = QStringLiteral("Choose"),
            .canChooseFiles = false,
            .canChooseDirectories = true,
            .canCreateDirectories = true,
            .allowedFileTypes = {},
            .directory = start};
}

} // namespace

ArchiveTargetArea::ArchiveTargetArea(Dependencies dependencies) : m_with(dependencies) {}

ArchiveTargetArea::~ArchiveTargetArea() = default;

void ArchiveTargetArea::setArchiveTargetDraft(const ArchiveTarget &draft)
{
    if (m_draft)
        setDraft(draft);
}

bool ArchiveTargetArea::archiveTargetSecretIsKept() const
{
    return m_draft && ArchiveTargetRules::keepsSecret(*m_draft, m_target);
}

void ArchiveTargetArea::refreshArchiveTarget()
{
    if (!m_busy)
        m_refresh.start([this](std::stop_token stop) { return refresh(std::move(stop)); });
}

Task<> ArchiveTargetArea::refresh(std::stop_token stop)
{
    const auto target = co_await fetchArchiveTarget(stop);
    if (!stop.stop_requested() && !target && isFault(target.error(), Fault::BadServerResponse))
        m_with.state.setArchiveError(target.error().localizedDescription);
}

Task<Result<std::optional<ArchiveTarget>>> ArchiveTargetArea::fetchArchiveTarget(std::stop_token stop)
{
    auto told = co_await answerOfObserver<std::optional<ArchiveTarget>>(
        &m_with.observer, &m_with.state, [](auto api, auto token) { return api->archiveTarget(token); }, stop);
    if (stop.stop_requested())
        co_return told;
    if (told)
        setTarget(told->has_value(), *told);
    else if (isFault(told.error(), Fault::BadServerResponse))
        setTarget(true, std::nullopt); // it has a place that it can't make sense of
    co_return told;
}

Task<Result<ArchiveTarget>> ArchiveTargetArea::storeArchiveTarget(ArchiveTarget target, std::stop_token stop)
{
    m_refresh.cancel(); // what it would tell is out of date
    auto stored = co_await answerOfObserver<ArchiveTarget>(
        &m_with.observer, &m_with.state,
        [target = std::move(target)](auto api, auto token) { return api->setArchiveTarget(target, token); }, stop);
    if (!stop.stop_requested() && stored)
        setTarget(true, *stored);
    co_return stored;
}

void ArchiveTargetArea::openArchiveTargetCard()
{
    if (!m_offered || m_busy || m_draft)
        return;
    ArchiveTarget draft = m_target.value_or(ArchiveTarget());
    if (draft.kind == Kind::None)
        draft.kind = Kind::Folder;
    draft.secretAccessKey.clear(); // it was not told
    m_with.state.clearArchiveMessage();
    setDraft(draft);
}

void ArchiveTargetArea::closeArchiveTargetCard()
{
    m_dialog.cancel();
    if (!m_draft)
        return;
    setDraft(std::nullopt);
    m_with.state.clearArchiveMessage();
}

void ArchiveTargetArea::chooseArchiveTargetFolder()
{
    if (m_draft && !m_dialog.isRunning())
        m_dialog.start([this](std::stop_token stop) { return chooseFolder(std::move(stop)); });
}

Task<> ArchiveTargetArea::chooseFolder(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.runNativeModal(folderPanel(expandedPath(m_draft->path)), stop);
    if (stop.stop_requested() || !m_draft || answer.response != DialogResponse::ok || answer.path.isEmpty())
        co_return;
    ArchiveTarget draft = *m_draft;
    draft.path = abbreviatedPath(answer.path);
    setDraft(draft);
}

void ArchiveTargetArea::saveArchiveTarget()
{
    if (!m_draft || m_busy)
        return;
    const ArchiveTarget next = ArchiveTargetRules::tidied(*m_draft, m_target);
    if (const auto complaint = ArchiveTargetRules::complaintAbout(next))
        return m_with.state.setArchiveError(*complaint);
    m_with.state.clearArchiveMessage();
    setBusy(true);
    m_save.start([this, next](std::stop_token stop) { return save(next, std::move(stop)); });
}

Task<> ArchiveTargetArea::save(ArchiveTarget next, std::stop_token stop)
{
    const bool confirmed = co_await isConfirmed(next, stop);
    if (stop.stop_requested())
        co_return;
    if (!confirmed)
        co_return setBusy(false);
    const auto stored = co_await storeArchiveTarget(next, stop);
    if (stop.stop_requested())
        co_return;
    setBusy(false);
    if (!stored)
        co_return m_with.state.setArchiveError(stored.error().localizedDescription);
    closeArchiveTargetCard();
    m_with.state.setArchiveMessage(QStringLiteral("The archive's place is %1.").arg(archivePlaceText(*stored)));
}

Task<bool> ArchiveTargetArea::isConfirmed(ArchiveTarget next, std::stop_token stop)
{
    const auto consequence = consequenceOf(next);
    if (!consequence)
        co_return true;
    const auto answer = co_await m_with.modals.runNativeModal(
        DialogAlert{.message = QStringLiteral("Move to another place?"),
                    .informativeText = *consequence,
                    .buttons = {QStringLiteral("Use the new place"), QStringLiteral("Cancel")},
                    .fields = {}},
        std::move(stop));
    co_return answer.response == DialogResponse::firstButton;
}

std::optional<QString> ArchiveTargetArea::consequenceOf(const ArchiveTarget &next) const
{
    const bool holdsFootage = !m_with.state.settings().archiveVaultId.isEmpty();
    if (!holdsFootage || !m_target || m_target->kind == Kind::None || isSamePlace(*m_target, next))
        return std::nullopt;
    return QStringLiteral(
               "What is stored in %1 stays there. It is not moved, and can be exported only while that place "
               "is the one chosen. New footage goes to %2.")
        .arg(archivePlaceText(*m_target), archivePlaceText(next));
}

void ArchiveTargetArea::setTarget(bool offered, const std::optional<ArchiveTarget> &target)
{
    if (offered == m_offered && target == m_target)
        return;
    m_offered = offered;
    m_target = target;
    Q_EMIT archiveTargetChanged();
}

void ArchiveTargetArea::setDraft(const std::optional<ArchiveTarget> &draft)
{
    if (draft == m_draft)
        return;
    m_draft = draft;
    Q_EMIT archiveTargetDraftChanged();
}

void ArchiveTargetArea::setBusy(bool busy)
{
    if (busy == m_busy)
        return;
    m_busy = busy;
    Q_EMIT archiveTargetBusyChanged();
}

} // namespace ostrel
