#include "observer/JsonRecord.h"

#include "base/Fault.h"
#include "observer/Base64.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <type_traits>

namespace ostrel {

namespace {

/// The whole literal as a number; nothing when it does not fit.
template <class T>
std::optional<T> parsed(QByteArrayView literal)
{
    T value{};
    const auto [end, fault] = std::from_chars(literal.begin(), literal.end(), value);
    return fault == std::errc() && end == literal.end() ? std::optional(value) : std::nullopt;
}

/// A fraction of zeros changes nothing.
QByteArrayView withoutZeroFraction(QByteArrayView literal)
{
    const qsizetype point = literal.indexOf('.');
    if (point < 0)
        return literal;
    const auto fraction = literal.sliced(point + 1);
    const bool zeros = std::all_of(fraction.begin(), fraction.end(), [](char c) { return c == '0'; });
    return zeros ? literal.first(point) : literal;
}

std::optional<qint64> integerFrom(const QByteArray &literal)
{
    const QByteArrayView digits = withoutZeroFraction(literal);
    if (const auto exact = parsed<qint64>(digits))
        return exact;
    // What is left is too large, or has an exponent or a true fraction. A double says which integer is meant only
    // as long as all its neighbours are integers too.
    constexpr double exactLimit = 9007199254740991.0;
    const auto value = parsed<double>(literal);
    const bool isInteger = value && std::abs(*value) <= exactLimit && std::trunc(*value) == *value;
    return isInteger ? std::optional(qint64(*value)) : std::nullopt;
}

} // namespace

RecordReader::RecordReader(const QByteArray &json, Absent absent) : m_absent(absent)
{
    auto members = parseJsonObject(json);
    if (members)
        m_members = std::move(*members);
    else
        m_fault = members.error();
}

Error RecordReader::error() const
{
    return faultError(Fault::UndecodableAnswer, m_fault);
}

const JsonValue *RecordReader::find(const char *key) const
{
    const auto last = std::find_if(m_members.rbegin(), m_members.rend(),
                                   [key](const JsonMember &member) { return member.key == QLatin1String(key); });
    return last == m_members.rend() || last->value.kind == JsonValue::Kind::Null ? nullptr : &last->value;
}

void RecordReader::fail(const char *key, const char *what)
{
    if (m_fault.isEmpty())
        m_fault = QStringLiteral("\"%1\" %2").arg(QLatin1String(key), QLatin1String(what));
}

void RecordReader::read(const char *key, const JsonValue &value, bool &field)
{
    if (value.kind != JsonValue::Kind::Boolean)
        return fail(key, "is not true or false");
    field = value.boolean;
}

void RecordReader::read(const char *key, const JsonValue &value, qint64 &field)
{
    const auto integer = value.kind == JsonValue::Kind::Number ? integerFrom(value.number) : std::nullopt;
    if (!integer)
        return fail(key, "is not an integer of 64 bits");
    field = *integer;
}

void RecordReader::read(const char *key, const JsonValue &value, double &field)
{
    const auto number = value.kind == JsonValue::Kind::Number ? parsed<double>(value.number) : std::nullopt;
    if (!number)
        return fail(key, "is not a number");
    field = *number;
}

void RecordReader::read(const char *key, const JsonValue &value, QString &field)
{
    if (value.kind != JsonValue::Kind::Text)
        return fail(key, "is not a text");
    field = value.text;
}

void RecordReader::read(const char *key, const JsonValue &value, Base64Text &field)
{
    QString text;
    read(key, value, text);
    field = Base64Text::ofText(text.toUtf8());
}

void appendJsonValue(QByteArray &json, bool value)
{
    json += value ? "true" : "false";
}

void appendJsonValue(QByteArray &json, qint64 value)
{
    json += QByteArray::number(value);
}

void appendJsonValue(QByteArray &json, double value)
{
    if (!std::isfinite(value)) {
        json += "null";
        return;
    }
    // The shortest digits that read back as the same number; plain notation where a person would use it.
    const double size = std::abs(value);
    const bool plain = size == 0 || (size >= 1e-6 && size < 1e21);
    std::array<char, 64> digits{};
    const auto written = std::to_chars(digits.begin(), digits.end(), value,
                                       plain ? std::chars_format::fixed : std::chars_format::scientific);
    json.append(digits.data(), written.ptr - digits.data());
}

void appendJsonValue(QByteArray &json, const QString &value)
{
    appendJsonText(json, value);
}

void appendJsonValue(QByteArray &json, const Base64Text &value)
{
    if (!value.otherText().isEmpty())
        return appendJsonUtf8(json, value.otherText());
    json += '"'; // nothing in base64 needs escaping
    appendBase64(json, value.bytes());
    json += '"';
}

} // namespace ostrel
