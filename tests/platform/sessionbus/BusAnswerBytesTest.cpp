#include "platform/sessionbus/BusAnswerBytes.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using Message = GlibHandle<GDBusMessage>;

Message call(quint32 serial)
{
    Message message(g_dbus_message_new_method_call("org.example.Service", "/a/path", "org.example.Face", "Method"));
    g_dbus_message_set_serial(message.get(), serial);
    return message;
}

QByteArray bytesOf(const Message &message, quint32 serial)
{
    g_dbus_message_set_serial(message.get(), serial);
    gsize size = 0;
    guchar *const bytes = g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    QByteArray blob(reinterpret_cast<const char *>(bytes), qsizetype(size));
    g_free(bytes);
    return blob;
}

QByteArray answer(quint32 toCall, quint32 serial, const char *text)
{
    const Message reply(g_dbus_message_new_method_reply(call(toCall).get()));
    g_dbus_message_set_sender(reply.get(), ":1.7");
    g_dbus_message_set_destination(reply.get(), ":1.8");
    g_dbus_message_set_body(reply.get(), g_variant_new("(s)", text));
    return bytesOf(reply, serial);
}

QByteArray textOf(const BusAnswerBytes &answer)
{
    const auto message = answer.message();
    const char *text = nullptr;
    if (message)
        g_variant_get(g_dbus_message_get_body(message.get()), "(&s)", &text);
    return text;
}

TEST(BusAnswerBytes, answer_namesItsCallAndCanBeRead)
{
    const auto found = BusAnswerBytes::in(answer(70'000, 5, "hello"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->call, 70'000U);
    EXPECT_EQ(textOf(*found), "hello");
}

TEST(BusAnswerBytes, sameAnswerToAnotherCall_hasTheSameContent)
{
    EXPECT_EQ(BusAnswerBytes::in(answer(3, 5, "hello"))->content,
              BusAnswerBytes::in(answer(1'000, 77, "hello"))->content);
    EXPECT_NE(BusAnswerBytes::in(answer(3, 5, "hello"))->content, BusAnswerBytes::in(answer(3, 5, "hallo"))->content);
}

TEST(BusAnswerBytes, refusal_isAnAnswerUnlikeAnyOther)
{
    const Message refusal(g_dbus_message_new_method_error_literal(call(9).get(), "org.example.Error.No", "hello"));
    const auto found = BusAnswerBytes::in(bytesOf(refusal, 4));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->call, 9U);
    EXPECT_NE(found->content, BusAnswerBytes::in(answer(9, 4, "hello"))->content);
}

TEST(BusAnswerBytes, callsAndSignals_areNone)
{
    EXPECT_FALSE(BusAnswerBytes::in(bytesOf(call(3), 3)));
    const Message signal(g_dbus_message_new_signal("/a/path", "org.example.Face", "Signal"));
    g_dbus_message_set_reply_serial(signal.get(), 3);
    EXPECT_FALSE(BusAnswerBytes::in(bytesOf(signal, 3)));
}

TEST(BusAnswerBytes, otherByteOrder_isLeftToWhoeverReadsIt)
{
    const Message reply(g_dbus_message_new_method_reply(call(3).get()));
    const bool isLittle = g_dbus_message_get_byte_order(reply.get()) == G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN;
    g_dbus_message_set_byte_order(reply.get(), isLittle ? G_DBUS_MESSAGE_BYTE_ORDER_BIG_ENDIAN
                                                        : G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN);
    EXPECT_FALSE(BusAnswerBytes::in(bytesOf(reply, 3)));
}

TEST(BusAnswerBytes, brokenMessages_areNoneOrCannotBeReadButHarmNothing)
{
    const QByteArray whole = answer(3, 5, "hello");
    for (qsizetype length = 0; length < whole.size(); ++length) {
        if (const auto cut = BusAnswerBytes::in(whole.left(length)))
            EXPECT_FALSE(cut->message()) << length;
    }
    for (qsizetype place = 0; place < whole.size(); ++place) {
        for (const char damage : {'\0', '\x01', '\x7f', '\xff'}) {
            QByteArray damaged = whole;
            damaged[place] = damage;
            if (const auto found = BusAnswerBytes::in(damaged))
                EXPECT_EQ(found->content.size(), whole.size());
        }
    }
}

} // namespace
} // namespace ostrel
