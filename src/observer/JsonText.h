#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <expected>

namespace ostrel {

/// One value of a JSON object, read no further than a record needs it.
struct JsonValue {
    enum class Kind { Null, Boolean, Number, Text, Container };

    Kind kind = Kind::Null;
    bool boolean = false;
    QByteArray number; ///< as it is written, so that no digit is lost
    QString text;
    /// Where the value stands in the text that was read: bytes [begin, end).
    qsizetype begin = 0;
    qsizetype end = 0;
};

struct JsonMember {
    QString key;
    JsonValue value;
};

/// Reads a text that holds exactly one JSON object, by the letter of RFC 8259. QJsonDocument reads more than that
/// (unknown escapes, raw control characters), and it rounds an integer that does not fit into 64 bits into one that
/// does; the observer reads the same settings file and refuses both, and the two must agree. Lists and objects
/// inside are checked and skipped. Half a surrogate pair becomes U+FFFD. Any thread.
/// @return the members in their order, keys that occur twice included; or what is wrong and where
std::expected<QList<JsonMember>, QString> parseJsonObject(const QByteArray &json);

/// Appends a text as JSON writes it; only what must be escaped is.
void appendJsonText(QByteArray &json, const QString &text);
/// The same for text that is UTF-8 already.
void appendJsonUtf8(QByteArray &json, const QByteArray &utf8);

} // namespace ostrel
