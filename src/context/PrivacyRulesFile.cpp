#include "context/PrivacyRulesFile.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "context/BuiltInPrivacyRules.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace ostrel {

namespace {

const QString applicationsKey = QStringLiteral("excludedApplications");
const QString classesKey = QStringLiteral("excludedWindowClasses");
const QString titlesKey = QStringLiteral("excludedTitlePatterns");
const QString sitesKey = QStringLiteral("excludedSites");

Error misunderstood(const QString &why)
{
    return faultError(Fault::UndecodableAnswer, why);
}

/// Nobody's list is longer; each entry is compared with each window.
constexpr qsizetype mostEntries = 1'000;
constexpr qsizetype longestEntry = 1'000;

/// The usable entries of one list.
Result<QStringList> readList(const QJsonObject &object, const QString &key, const QStringList &otherwise,
                             QStringList &complaints)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return otherwise;
    if (!value.isArray())
        return std::unexpected(misunderstood(QStringLiteral("%1 is no list").arg(key)));
    QStringList entries;
    const QJsonArray list = value.toArray();
    for (qsizetype i = 0; i < std::min(list.size(), mostEntries); ++i) {
        const QString entry = list[i].toString();
        if (entry.isEmpty() || entry.size() > longestEntry)
            complaints.append(
                QStringLiteral("entry %1 of %2 is no text, an empty one or too long").arg(i + 1).arg(key));
        else
            entries.append(entry);
    }
    if (list.size() > mostEntries)
        complaints.append(QStringLiteral("%1 has more than %2 entries").arg(key).arg(mostEntries));
    return entries;
}

QList<QRegularExpression> compiled(const QStringList &patterns, QStringList &complaints)
{
    QList<QRegularExpression> expressions;
    for (const QString &pattern : patterns) {
        QRegularExpression expression = titlePattern(pattern);
        if (expression.isValid())
            expressions.append(std::move(expression));
        else
            complaints.append(QStringLiteral("\"%1\" of %2 is no regular expression: %3")
                                  .arg(harmless(pattern), titlesKey, expression.errorString()));
    }
    return expressions;
}

Result<PrivacyRulesText> readText(const QString &path)
{
    const auto bytes = readFile(path);
    if (!bytes)
        return std::unexpected(bytes.error());
    constexpr qsizetype longestText = 1'000'000;
    if (bytes->size() > longestText)
        return std::unexpected(misunderstood(QStringLiteral("it is longer than %1 bytes").arg(longestText)));
    return PrivacyRulesText::parse(*bytes);
}

bool isSameTime(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

} // namespace

Result<PrivacyRulesText> PrivacyRulesText::parse(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return std::unexpected(
            misunderstood(QStringLiteral("%1, at byte %2").arg(error.errorString()).arg(error.offset)));
    if (!document.isObject())
        return std::unexpected(misunderstood(QStringLiteral("it is no JSON object")));
    const QJsonObject object = document.object();
    PrivacyRulesText text;
    auto applications = readList(object, applicationsKey, builtInApplications(), text.complaints);
    auto classes = readList(object, classesKey, builtInWindowClasses(), text.complaints);
    const auto titles = readList(object, titlesKey, builtInTitlePatterns(), text.complaints);
    auto sites = readList(object, sitesKey, {}, text.complaints);
    for (const auto *list : {&std::as_const(applications), &std::as_const(classes), &titles, &std::as_const(sites)}) {
        if (!*list)
            return std::unexpected(list->error());
    }
    text.rules = {.desktopIds = std::move(*applications),
                  .windowClasses = std::move(*classes),
                  .titles = compiled(*titles, text.complaints),
                  .sites = std::move(*sites)};
    return text;
}

PrivacyRulesFile::PrivacyRulesFile(QString path) : m_path(std::move(path)), m_current(PrivacyRules::builtIn()) {}

QString PrivacyRulesFile::primaryFile()
{
    return stateDirectory() + QLatin1String("/privacy.json");
}

std::optional<Result<PrivacyRulesText>> PrivacyRulesFile::look(const QString &path)
{
    struct stat info{};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0 && errno == ENOENT)
        return std::nullopt;
    return readText(path);
}

PrivacyRules PrivacyRulesFile::current()
{
    const std::lock_guard lock(m_mutex);
    // Before the file is read: what is written meanwhile makes it another one again.
    if (const Stamp stamp = readStamp(); m_stamp != stamp)
        read(stamp);
    return m_current;
}

void PrivacyRulesFile::read(const Stamp &stamp)
{
    m_stamp = stamp;
    if (stamp.error == ENOENT) {
        m_current = PrivacyRules::builtIn();
        m_lastGood.reset();
        return;
    }
    const auto text = readText(m_path);
    if (!text) {
        m_current = PrivacyRules::builtIn();
        if (m_lastGood)
            m_current = m_lastGood->joinedWith(m_current);
        qCWarning(logScreenCapture, "%s is left aside, the built-in privacy rules%s hold; mend it, or delete it: %s",
                  qUtf8Printable(m_path), m_lastGood ? " and those read before" : "",
                  qUtf8Printable(text.error().localizedDescription));
        return;
    }
    for (const QString &complaint : text->complaints)
        qCWarning(logScreenCapture, "%s: %s; it is left aside, the other privacy rules hold", qUtf8Printable(m_path),
                  qUtf8Printable(complaint));
    m_current = text->rules;
    m_lastGood = text->rules;
}

Result<> PrivacyRulesFile::makeIfMissing(const QString &path)
{
    struct stat info{};
    if (::lstat(QFile::encodeName(path).constData(), &info) == 0)
        return {};
    const QJsonObject object{{applicationsKey, QJsonArray::fromStringList(builtInApplications())},
                             {classesKey, QJsonArray::fromStringList(builtInWindowClasses())},
                             {titlesKey, QJsonArray::fromStringList(builtInTitlePatterns())},
                             {sitesKey, QJsonArray()}};
    return writeFileAtomically(path, QJsonDocument(object).toJson());
}

PrivacyRulesFile::Stamp PrivacyRulesFile::readStamp() const
{
    struct stat info{};
    if (::stat(QFile::encodeName(m_path).constData(), &info) != 0)
        return {.device = 0, .inode = 0, .size = 0, .changed = {}, .statusChanged = {}, .error = errno};
    return {.device = info.st_dev,
            .inode = info.st_ino,
            .size = info.st_size,
            .changed = info.st_mtim,
            .statusChanged = info.st_ctim,
            .error = 0};
}

bool PrivacyRulesFile::Stamp::operator==(const Stamp &other) const
{
    return device == other.device && inode == other.inode && size == other.size && error == other.error &&
           isSameTime(changed, other.changed) && isSameTime(statusChanged, other.statusChanged);
}

} // namespace ostrel
