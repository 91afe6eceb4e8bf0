#include "platform/sessionbus/BusAnswerBytes.h"

#include <QSysInfo>

#include <algorithm>
#include <cstring>
#include <utility>

namespace ostrel {

namespace {

constexpr char ownOrder = QSysInfo::ByteOrder == QSysInfo::LittleEndian ? 'l' : 'B';
constexpr qsizetype serialOffset = 8;
constexpr qsizetype fieldsLengthOffset = 12;
constexpr qsizetype fieldsOffset = 16;
constexpr char replySerialField = 5;
constexpr quint32 anyNumber = 1; ///< none may be 0

/// Walks over the fields in front of a message's body.
class Fields
{
public:
    explicit Fields(const QByteArray &message) : m_bytes(message), m_end(fieldsOffset)
    {
        m_end = std::min(message.size(), fieldsOffset + qsizetype(number(fieldsLengthOffset).value_or(0)));
    }

    /// @return where the number of the answered call stands; absent where it is not found
    std::optional<qsizetype> replySerial()
    {
        for (qsizetype at = fieldsOffset; at + 4 < m_end; at = aligned(at, 8)) {
            // A field is its code, its type's name, which is one letter, and its value.
            const char code = m_bytes[at];
            const char type = m_bytes[at + 2];
            if (m_bytes[at + 1] != 1 || m_bytes[at + 3] != 0)
                return std::nullopt;
            at += 4;
            if (code == replySerialField)
                return type == 'u' && number(at) ? std::optional(at) : std::nullopt;
            if (!skip(type, at))
                return std::nullopt;
        }
        return std::nullopt;
    }

    std::optional<quint32> number(qsizetype at) const
    {
        if (at + qsizetype(sizeof(quint32)) > m_bytes.size())
            return std::nullopt;
        quint32 value = 0;
        std::memcpy(&value, m_bytes.constData() + at, sizeof(value));
        return value;
    }

private:
    static qsizetype aligned(qsizetype at, qsizetype to) { return (at + to - 1) / to * to; }

    bool skip(char type, qsizetype &at) const
    {
        if (type == 'g') {
            at += 1 + quint8(m_bytes[at]) + 1;
            return true;
        }
        const auto length = number(aligned(at, 4));
        if (!length || (type != 'u' && type != 's' && type != 'o'))
            return false;
        at = aligned(at, 4) + 4 + (type == 'u' ? 0 : qsizetype(*length) + 1);
        return true;
    }

    const QByteArray &m_bytes;
    qsizetype m_end;
};

} // namespace

std::optional<BusAnswerBytes> BusAnswerBytes::in(QByteArray message)
{
    const bool isAnswer = message.size() > fieldsOffset && message[0] == ownOrder &&
                          (message[1] == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || message[1] == G_DBUS_MESSAGE_TYPE_ERROR);
    if (!isAnswer)
        return std::nullopt;
    Fields fields(message);
    const auto place = fields.replySerial();
    if (!place)
        return std::nullopt;
    BusAnswerBytes answer{.call = *fields.number(*place), .content = std::move(message)};
    for (const qsizetype number : {serialOffset, *place})
        std::memcpy(answer.content.data() + number, &anyNumber, sizeof(anyNumber));
    return answer;
}

GlibHandle<GDBusMessage> BusAnswerBytes::message() const
{
    auto *const bytes = reinterpret_cast<guchar *>(const_cast<char *>(content.constData())); // it is only read
    return GlibHandle<GDBusMessage>(
        g_dbus_message_new_from_blob(bytes, gsize(content.size()), G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
}

} // namespace ostrel
