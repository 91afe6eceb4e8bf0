#pragma once

#include "base/Error.h"
#include "observer/Base64Text.h"
#include "observer/JsonText.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace ostrel {

/// Reads the fields of one record from a JSON object; the first fault is kept and names its key. Call it with each
/// key and field: a plain field must be there, an optional one may be absent or null. Integers are exact over 64
/// bits (20000.0 is one, 1.5 is not); of a key that occurs twice the last value holds.
class RecordReader
{
public:
    /// What a plain field does when its key is absent or null.
    enum class Absent { Fails, KeepsTheFieldsValue };

    explicit RecordReader(const QByteArray &json, Absent absent = Absent::Fails);

    template <class T>
    void operator()(const char *key, T &field)
    {
        const JsonValue *value = find(key);
        if (value)
            read(key, *value, field);
        else if (m_absent == Absent::Fails)
            fail(key, "is missing");
    }

    template <class T>
    void operator()(const char *key, std::optional<T> &field)
    {
        if (const JsonValue *value = find(key))
            read(key, *value, field.emplace());
    }

    /// @return the record that was read, or Fault::UndecodableAnswer when anything was wrong
    template <class Record>
    Result<Record> outcome(Record record) const
    {
        if (m_fault.isEmpty())
            return record;
        return std::unexpected(error());
    }

private:
    Error error() const;
    /// Nothing where the key is absent or null.
    const JsonValue *find(const char *key) const;
    void fail(const char *key, const char *what);
    void read(const char *key, const JsonValue &value, bool &field);
    void read(const char *key, const JsonValue &value, qint64 &field);
    void read(const char *key, const JsonValue &value, double &field);
    void read(const char *key, const JsonValue &value, QString &field);
    void read(const char *key, const JsonValue &value, Base64Text &field);

    Absent m_absent;
    QList<JsonMember> m_members;
    QString m_fault;
};

void appendJsonValue(QByteArray &json, bool value);
void appendJsonValue(QByteArray &json, qint64 value);
/// A number that is not finite has no JSON form and becomes null.
void appendJsonValue(QByteArray &json, double value);
void appendJsonValue(QByteArray &json, const QString &value);
void appendJsonValue(QByteArray &json, const Base64Text &value);

/// Writes the fields of one record as a compact object, in the order of the calls; absent ones are left out.
class RecordWriter
{
public:
    template <class T>
    void operator()(const char *key, const T &field)
    {
        m_json += m_json.isEmpty() ? "{\"" : ",\"";
        m_json += key;
        m_json += "\":";
        appendJsonValue(m_json, field);
    }

    template <class T>
    void operator()(const char *key, const std::optional<T> &field)
    {
        if (field)
            (*this)(key, *field);
    }

    /// How many bytes are written so far.
    qsizetype size() const { return m_json.size(); }
    QByteArray finish() { return m_json.isEmpty() ? QByteArray("{}") : std::move(m_json += '}'); }

private:
    QByteArray m_json;
};

} // namespace ostrel
