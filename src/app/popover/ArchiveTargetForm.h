#pragma once

#include "model/ArchiveTargetArea.h"

#include <QObject>
#include <QString>
#include <QtQmlIntegration>

namespace ostrel {

class AppModel;

/// The place of the archive: the line that names it, and the card on which another one is chosen. The texts of the card
/// are those of the draft, and empty while it is closed. Main thread.
class ArchiveTargetForm : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    /// Whether the observer lets its user choose.
    Q_PROPERTY(bool offered READ isOffered NOTIFY placeChanged)
    /// Where the archive lies; empty where that isn't chosen or not known.
    Q_PROPERTY(QString place READ place NOTIFY placeChanged)

    Q_PROPERTY(bool open READ isOpen NOTIFY draftChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)
    Q_PROPERTY(Kind kind READ kind WRITE setKind NOTIFY draftChanged)
    Q_PROPERTY(bool lossless READ isLossless WRITE setLossless NOTIFY draftChanged)
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY draftChanged)
    Q_PROPERTY(QString endpoint READ endpoint WRITE setEndpoint NOTIFY draftChanged)
    Q_PROPERTY(QString region READ region WRITE setRegion NOTIFY draftChanged)
    Q_PROPERTY(QString bucket READ bucket WRITE setBucket NOTIFY draftChanged)
    Q_PROPERTY(QString prefix READ prefix WRITE setPrefix NOTIFY draftChanged)
    Q_PROPERTY(bool pathStyle READ isPathStyle WRITE setPathStyle NOTIFY draftChanged)
    Q_PROPERTY(QString accessKeyId READ accessKeyId WRITE setAccessKeyId NOTIFY draftChanged)
    Q_PROPERTY(QString secretAccessKey READ secretAccessKey WRITE setSecretAccessKey NOTIFY draftChanged)
    /// Whether the secret may stay empty, because the observer keeps it.
    Q_PROPERTY(bool secretIsKept READ secretIsKept NOTIFY draftChanged)
    Q_PROPERTY(QString remote READ remote WRITE setRemote NOTIFY draftChanged)

public:
    enum Kind {
        None = int(ArchiveTarget::Kind::None),
        Folder = int(ArchiveTarget::Kind::Folder),
        S3 = int(ArchiveTarget::Kind::S3),
        Rclone = int(ArchiveTarget::Kind::Rclone)
    };
    Q_ENUM(Kind)

    /// The model outlives this object.
    explicit ArchiveTargetForm(AppModel &model);

    bool isOffered() const;
    QString place() const;
    bool isOpen() const;
    bool isBusy() const;
    bool secretIsKept() const;

    Kind kind() const { return Kind(draft().kind); }
    void setKind(Kind kind) { change(&ArchiveTarget::kind, ArchiveTarget::Kind(kind)); }
    bool isLossless() const { return draft().lossless; }
    void setLossless(bool lossless) { change(&ArchiveTarget::lossless, lossless); }
    QString path() const { return draft().path; }
    void setPath(const QString &path) { change(&ArchiveTarget::path, path); }
    QString endpoint() const { return draft().endpoint; }
    void setEndpoint(const QString &endpoint) { change(&ArchiveTarget::endpoint, endpoint); }
    QString region() const { return draft().region; }
    void setRegion(const QString &region) { change(&ArchiveTarget::region, region); }
    QString bucket() const { return draft().bucket; }
    void setBucket(const QString &bucket) { change(&ArchiveTarget::bucket, bucket); }
    QString prefix() const { return draft().prefix; }
    void setPrefix(const QString &prefix) { change(&ArchiveTarget::prefix, prefix); }
    bool isPathStyle() const { return draft().pathStyle; }
    void setPathStyle(bool pathStyle) { change(&ArchiveTarget::pathStyle, pathStyle); }
    QString accessKeyId() const { return draft().accessKeyId; }
    void setAccessKeyId(const QString &id) { change(&ArchiveTarget::accessKeyId, id); }
    QString secretAccessKey() const { return draft().secretAccessKey; }
    void setSecretAccessKey(const QString &secret) { change(&ArchiveTarget::secretAccessKey, secret); }
    QString remote() const { return draft().remote; }
    void setRemote(const QString &remote) { change(&ArchiveTarget::remote, remote); }

    Q_INVOKABLE void refreshArchiveTarget();
    Q_INVOKABLE void openArchiveTargetCard();
    Q_INVOKABLE void closeArchiveTargetCard();
    Q_INVOKABLE void chooseArchiveTargetFolder();
    Q_INVOKABLE void saveArchiveTarget();

Q_SIGNALS:
    void placeChanged();
    void draftChanged();
    void busyChanged();

private:
    ArchiveTarget draft() const;
    template <class T>
    void change(T ArchiveTarget::*field, const T &value)
    {
        ArchiveTarget changed = draft();
        changed.*field = value;
        take(changed);
    }
    void take(const ArchiveTarget &changed);

    AppModel &m_model;
};

} // namespace ostrel
