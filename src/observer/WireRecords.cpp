#include "observer/WireRecords.h"

#include "observer/JsonRecord.h"

#include <concepts>
#include <type_traits>

namespace ostrel {

namespace {

template <class T, class Record>
concept MaybeConst = std::same_as<std::remove_const_t<T>, Record>;

// One list a record, in declaration order, for reading and writing alike.

void eachField(MaybeConst<ObserverStatus> auto &record, auto &visit)
{
    visit("running", record.running);
    visit("sessionId", record.sessionId);
    visit("chunkIndex", record.chunkIndex);
    visit("lastAction", record.lastAction);
    visit("lastError", record.lastError);
    visit("lastChunkAt", record.lastChunkAt);
    visit("pendingAnalysisChunks", record.pendingAnalysisChunks);
    visit("analysisBackfillActive", record.analysisBackfillActive);
    visit("analysisBackfillBlocked", record.analysisBackfillBlocked);
    visit("analysisBackfillLastError", record.analysisBackfillLastError);
}

void eachField(MaybeConst<CapturedFramePayload> auto &record, auto &visit)
{
    visit("receivedAtMs", record.receivedAtMs);
    visit("frameIndex", record.frameIndex);
    visit("videoBase64", record.videoBase64);
    visit("videoMimeType", record.videoMimeType);
    visit("text", record.text);
    visit("displayId", record.displayId);
    visit("displayLabel", record.displayLabel);
    visit("displayWidth", record.displayWidth);
    visit("displayHeight", record.displayHeight);
    visit("activeDisplayId", record.activeDisplayId);
    visit("activeDisplayLabel", record.activeDisplayLabel);
    visit("activeDisplayReason", record.activeDisplayReason);
}

void eachField(MaybeConst<ArchiveStatus> auto &record, auto &visit)
{
    visit("archiveEnabled", record.archiveEnabled);
    visit("archiveVaultId", record.archiveVaultId);
    visit("hasRecoveryKey", record.hasRecoveryKey);
    visit("recoveryKey", record.recoveryKey);
}

void eachField(MaybeConst<ArchiveExportStatus> auto &record, auto &visit)
{
    visit("state", record.state);
    visit("exported", record.exported);
    visit("total", record.total);
    visit("skipped", record.skipped);
    visit("currentDay", record.currentDay);
    visit("error", record.error);
}

void eachField(MaybeConst<ArchiveExportEstimate> auto &record, auto &visit)
{
    visit("clips", record.clips);
    visit("bytes", record.bytes);
}

void eachField(MaybeConst<ForgetReport> auto &record, auto &visit)
{
    visit("frames", record.frames);
    visit("rawInputs", record.rawInputs);
    visit("rawInputsUnknown", record.rawInputsUnknown);
    visit("journalLines", record.journalLines);
    visit("archiveClips", record.archiveClips);
    visit("archiveFrames", record.archiveFrames);
    visit("notSearched", record.notSearched);
    visit("archiveWaits", record.archiveWaits);
}

template <class Record>
Result<Record> decoded(const QByteArray &json)
{
    Record record;
    RecordReader read(json);
    eachField(record, read);
    return read.outcome(std::move(record));
}

template <class Record>
QByteArray encoded(const Record &record)
{
    RecordWriter write;
    eachField(record, write);
    return write.finish();
}

/// Writes a frame without its picture, and remembers where that belongs.
class WriterAroundPicture
{
public:
    void operator()(const char *key, const Base64Text &picture)
    {
        m_write(key, Base64Text::ofText(picture.otherText()));
        m_pictureAt = m_write.size() - 1; // before the closing quotation mark
    }
    void operator()(const char *key, const auto &field) { m_write(key, field); }

    CapturedFramePayload::JsonAroundPicture finish()
    {
        const QByteArray json = m_write.finish();
        return {.before = json.first(m_pictureAt), .after = json.sliced(m_pictureAt)};
    }

private:
    RecordWriter m_write;
    qsizetype m_pictureAt = 0;
};

} // namespace

Result<ObserverStatus> ObserverStatus::fromJson(const QByteArray &json)
{
    return decoded<ObserverStatus>(json);
}

QByteArray ObserverStatus::toJson() const
{
    return encoded(*this);
}

Result<CapturedFramePayload> CapturedFramePayload::fromJson(const QByteArray &json)
{
    return decoded<CapturedFramePayload>(json);
}

QByteArray CapturedFramePayload::toJson() const
{
    return encoded(*this);
}

CapturedFramePayload::JsonAroundPicture CapturedFramePayload::toJsonAroundPicture() const
{
    WriterAroundPicture write;
    eachField(*this, write);
    return write.finish();
}

Result<ArchiveStatus> ArchiveStatus::fromJson(const QByteArray &json)
{
    return decoded<ArchiveStatus>(json);
}

QByteArray ArchiveStatus::toJson() const
{
    return encoded(*this);
}

Result<ArchiveExportStatus> ArchiveExportStatus::fromJson(const QByteArray &json)
{
    return decoded<ArchiveExportStatus>(json);
}

QByteArray ArchiveExportStatus::toJson() const
{
    return encoded(*this);
}

Result<ArchiveExportEstimate> ArchiveExportEstimate::fromJson(const QByteArray &json)
{
    return decoded<ArchiveExportEstimate>(json);
}

QByteArray ArchiveExportEstimate::toJson() const
{
    return encoded(*this);
}

Result<ForgetReport> ForgetReport::fromJson(const QByteArray &json)
{
    return decoded<ForgetReport>(json);
}

QByteArray ForgetReport::toJson() const
{
    return encoded(*this);
}

} // namespace ostrel
