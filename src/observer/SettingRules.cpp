#include "observer/SettingRules.h"

#include "base/Text.h"
#include "observer/SettingsFields.h"
#include "observer/SettingsStore.h"

#include <QRegularExpression>
#include <QUrl>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace ostrel::SettingRules {

namespace {

/// Which values a setting takes. The plain kinds need no numbers or words.
struct Rule {
    enum class Kind {
        Boolean,
        WholeNumber,    ///< from `least` to `greatest`
        PositiveNumber, ///< finite and above 0
        OneOf,          ///< one of `words`
        Line,           ///< not empty, without line breaks
        LineOrEmpty,
        Text, ///< not empty
        Url,
        Path, ///< absolute, or in the home folder by "~"
        PathOrEmpty,
        Secret,
        Observers, ///< not for the user to set
    };

    const char *key;
    Kind kind;
    qint64 least = 0;
    qint64 greatest = 0;
    std::array<const char *, 2> words = {};
};

constexpr qint64 anHourMs = 3'600'000;
constexpr qint64 greatestPort = 65'535;
// Far above what any model writes in one answer, or reads of a journal with profit; mistyped values lie above.
constexpr qint64 aMillionTokens = 1'000'000;
constexpr qint64 tenThousandEntries = 10'000;

/// In the order of the record's fields, one for each.
constexpr std::array rules{
    Rule{.key = "inferenceProvider", .kind = Rule::Kind::OneOf, .words = {"ostrel", "google_vertex_ai"}},
    Rule{.key = "analysisServerUrl", .kind = Rule::Kind::Url},
    Rule{.key = "analysisApiToken", .kind = Rule::Kind::Secret},
    Rule{.key = "byokGoogleVertexAuthMode", .kind = Rule::Kind::OneOf, .words = {"api_key", "service_account"}},
    Rule{.key = "byokGoogleVertexProjectId", .kind = Rule::Kind::LineOrEmpty},
    Rule{.key = "byokGoogleVertexLocation", .kind = Rule::Kind::Line},
    Rule{.key = "byokGoogleVertexApiKey", .kind = Rule::Kind::Secret},
    Rule{.key = "byokGoogleVertexServiceAccountPath", .kind = Rule::Kind::PathOrEmpty},
    Rule{.key = "outputDirectory", .kind = Rule::Kind::Path},
    Rule{.key = "rawInputDirectory", .kind = Rule::Kind::Path},
    Rule{.key = "instructions", .kind = Rule::Kind::Text},
    Rule{.key = "chunkSizeMs", .kind = Rule::Kind::WholeNumber, .least = 1, .greatest = anHourMs},
    Rule{.key = "chunkOverlapMs", .kind = Rule::Kind::WholeNumber, .greatest = anHourMs},
    Rule{.key = "frameFps", .kind = Rule::Kind::PositiveNumber},
    Rule{.key = "mediaResolution", .kind = Rule::Kind::Line},
    Rule{.key = "model", .kind = Rule::Kind::Line},
    Rule{.key = "thinkingLevel", .kind = Rule::Kind::Line},
    Rule{.key = "maxOutputTokens", .kind = Rule::Kind::WholeNumber, .greatest = aMillionTokens},
    Rule{.key = "journalTailSize", .kind = Rule::Kind::WholeNumber, .greatest = tenThousandEntries},
    Rule{.key = "saveRawInputs", .kind = Rule::Kind::Boolean},
    Rule{.key = "archiveEnabled", .kind = Rule::Kind::Observers},
    Rule{.key = "archiveVaultId", .kind = Rule::Kind::Observers},
    Rule{.key = "localPort", .kind = Rule::Kind::WholeNumber, .least = 1, .greatest = greatestPort},
};

const Rule *findRule(const QString &key)
{
    const auto *rule = std::ranges::find(rules, key, [](const Rule &each) { return QLatin1String(each.key); });
    return rule == rules.end() ? nullptr : rule;
}

bool isOfKind(const QString &key, Rule::Kind kind)
{
    const Rule *rule = findRule(key);
    return rule != nullptr && rule->kind == kind;
}

QString takes(const Rule &rule)
{
    switch (rule.kind) {
    case Rule::Kind::Boolean:
        return QStringLiteral("true or false");
    case Rule::Kind::WholeNumber:
        return QStringLiteral("a whole number from %1 to %2").arg(rule.least).arg(rule.greatest);
    case Rule::Kind::PositiveNumber:
        return QStringLiteral("a number above 0, such as 0.5");
    case Rule::Kind::OneOf:
        return QStringLiteral("%1 or %2").arg(QLatin1String(rule.words[0]), QLatin1String(rule.words[1]));
    case Rule::Kind::Line:
        return QStringLiteral("a text in one line that is not empty");
    case Rule::Kind::LineOrEmpty:
        return QStringLiteral("a text in one line, or an empty one");
    case Rule::Kind::Text:
        return QStringLiteral("a text that is not empty");
    case Rule::Kind::Url:
        return QStringLiteral("a URL that begins with https:// or http://");
    case Rule::Kind::Path:
        return QStringLiteral("a path that begins with / or ~/");
    case Rule::Kind::PathOrEmpty:
        return QStringLiteral("a path that begins with / or ~/, or an empty text");
    case Rule::Kind::Secret:
        return QStringLiteral("a secret in one line, or an empty text, which removes it");
    case Rule::Kind::Observers:
        return QStringLiteral("no value from outside: whether there is an archive is the observer's own to say");
    }
    return {};
}

/// Whether any words may be its value, so that a complaint about one character of them says more than the rule.
bool takesFreeText(const Rule &rule)
{
    constexpr std::array free{Rule::Kind::Line, Rule::Kind::LineOrEmpty, Rule::Kind::Text,
                              Rule::Kind::Path, Rule::Kind::PathOrEmpty, Rule::Kind::Secret};
    return std::ranges::find(free, rule.kind) != free.end();
}

bool isLine(const QString &text)
{
    return std::ranges::none_of(text, [](QChar c) { return isNewline(c) || c.isNull(); });
}

bool isPath(const QString &text)
{
    return isLine(text) &&
           (text.startsWith(u'/') || text == QLatin1String("~") || text.startsWith(QLatin1String("~/")));
}

bool isWebUrl(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isWeb = url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http");
    return url.isValid() && isWeb && !url.host().isEmpty();
}

bool fits(const Rule &rule, const QString &text)
{
    switch (rule.kind) {
    case Rule::Kind::OneOf:
        return std::ranges::any_of(rule.words, [&text](const char *word) { return text == QLatin1String(word); });
    case Rule::Kind::Line:
        return isLine(text) && !trimmedBlanks(text).isEmpty();
    case Rule::Kind::LineOrEmpty:
    case Rule::Kind::Secret:
        return isLine(text);
    case Rule::Kind::Text:
        return !trimmedBlanksAndNewlines(text).isEmpty() && !text.contains(QChar::Null);
    case Rule::Kind::Url:
        return isWebUrl(text);
    case Rule::Kind::Path:
        return isPath(text);
    case Rule::Kind::PathOrEmpty:
        return text.isEmpty() || isPath(text);
    default:
        return false;
    }
}

// One for each type that a field may have. @return whether the value fits; where it doesn't, the field is as it was

bool assignTo(QString &field, const Rule &rule, const QString &value)
{
    const QString text = rule.kind == Rule::Kind::Secret ? trimmedBlanksAndNewlines(value) : value;
    if (!fits(rule, text))
        return false;
    field = text;
    return true;
}

bool assignTo(qint64 &field, const Rule &rule, const QString &value)
{
    const auto number = parseInteger(value);
    if (!number || *number < rule.least || *number > rule.greatest)
        return false;
    field = *number;
    return true;
}

bool assignTo(double &field, const Rule & /*the only one*/, const QString &value)
{
    // toDouble alone would also take blanks, "inf" and "nan".
    static const QRegularExpression form(QStringLiteral(R"(\A\+?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?\z)"));
    const double number = form.match(value).hasMatch() ? value.toDouble() : 0;
    if (!std::isfinite(number) || number <= 0)
        return false;
    field = number;
    return true;
}

bool assignTo(bool &field, const Rule &rule, const QString &value)
{
    if (rule.kind != Rule::Kind::Boolean || (value != QLatin1String("true") && value != QLatin1String("false")))
        return false;
    field = value == QLatin1String("true");
    return true;
}

/// How many letters have to be put in, left out or replaced to make one word of the other, whatever their case.
qsizetype distance(const QString &a, const QString &b)
{
    std::vector<qsizetype> row(size_t(b.size()) + 1);
    for (size_t j = 0; j < row.size(); ++j)
        row[j] = qsizetype(j);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        qsizetype diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j < row.size(); ++j) {
            const bool same = a[i - 1].toLower() == b[qsizetype(j) - 1].toLower();
            const qsizetype replaced = diagonal + (same ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

} // namespace

QStringList keys()
{
    QStringList keys;
    for (const Rule &rule : rules)
        keys.append(QString::fromLatin1(rule.key));
    return keys;
}

bool isKey(const QString &key)
{
    return findRule(key) != nullptr;
}

QString nearestKey(const QString &mistyped)
{
    // A part of the name is what people remember of it.
    constexpr qsizetype shortestPart = 3;
    for (const QString &key : keys()) {
        if (mistyped.size() >= shortestPart && key.contains(mistyped, Qt::CaseInsensitive))
            return key;
    }
    // No key is longer, and comparing costs the product of the lengths.
    constexpr qsizetype longest = 100;
    return std::ranges::min(keys(), {},
                            [word = mistyped.left(longest)](const QString &key) { return distance(word, key); });
}

bool isSecret(const QString &key)
{
    return isOfKind(key, Rule::Kind::Secret);
}

bool isObservers(const QString &key)
{
    return isOfKind(key, Rule::Kind::Observers);
}

QString takes(const QString &key)
{
    const Rule *rule = findRule(key);
    return rule == nullptr ? QString() : takes(*rule);
}

std::expected<void, QString> assign(ObserverSettings &settings, const QString &key, const QString &value)
{
    const Rule *rule = findRule(key);
    if (rule == nullptr)
        return std::unexpected(QStringLiteral("There is no setting \"%1\".").arg(key));
    if (rule->kind == Rule::Kind::Secret && trimmedBlanksAndNewlines(value) == SettingsStore::redacted)
        return std::unexpected(
            QStringLiteral("\"%1\" only stands for the secret %2 where it is not shown; it is none itself.")
                .arg(SettingsStore::redacted, key));
    bool fitted = false;
    eachSettingsField(settings, [&](const char *name, auto &field) {
        if (key == QLatin1String(name))
            fitted = assignTo(field, *rule, value);
    });
    if (!fitted && takesFreeText(*rule) && value.contains(QChar::Null))
        return std::unexpected(QStringLiteral("%1 takes a text without NUL characters.").arg(key));
    if (!fitted)
        return std::unexpected(QStringLiteral("%1 takes %2.").arg(key, takes(*rule)));
    return {};
}

} // namespace ostrel::SettingRules
