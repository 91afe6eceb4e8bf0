#pragma once

#include <QByteArray>
#include <QPoint>
#include <QSize>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// A Wayland compositor without windows: outputs that the test plugs in, changes and unplugs, of one colour each, and
/// pictures of them, or what the test has it answer instead. Whoever asks for something that it was not told of, or
/// offers other memory than was wanted, fails the test. It serves on a thread of its own; a call returns when the
/// clients have been told. Any thread.
class FakeCompositor
{
public:
    struct Output {
        QByteArray name = "DP-1"; ///< the connector's
        QSize mode{64, 32};       ///< pixels, before they are turned
        QPoint corner{0, 0};      ///< on the desktop, logical
        int scale = 1;
        int transform = 0; ///< of wl_output
        /// Absent where it follows from the mode.
        std::optional<QSize> logicalSize = {};
    };

    /// What a picture is to be written into.
    struct Memory {
        std::uint32_t format = 0; ///< of wl_shm
        std::uint32_t width = 0;  ///< pixels
        std::uint32_t height = 0;
        std::uint32_t stride = 0; ///< bytes from row to row
    };

    /// How a request for a picture is answered.
    enum class Answer {
        Picture,
        Refused,       ///< at once, as of an output that is switched off
        RefusedLate,   ///< after word of the memory that is wanted
        RefusedCopy,   ///< once the memory is there
        ReadyTooEarly, ///< said to be written before there is memory, and once more when it is
        NoMemory,      ///< none that could be shared is wanted
        Silence,
        SilentCopy, ///< silence once the memory is there, whatever happens
    };
    struct Behaviour {
        Answer answer = Answer::Picture;
        std::optional<Memory> memory = {}; ///< absent where it is what the mode needs
    };

    /// @param socket its name in $XDG_RUNTIME_DIR
    explicit FakeCompositor(const QByteArray &socket);
    FakeCompositor(const FakeCompositor &) = delete;
    FakeCompositor &operator=(const FakeCompositor &) = delete;
    /// Its clients lose their connections.
    ~FakeCompositor();

    /// @return the number that the other calls know it by
    int plugIn(const Output &output, std::uint32_t colour = 0x336699);
    void unplug(int output);
    /// Unplugs it, and ends whoever asks for it without having heard of that.
    void forget(int output);
    /// The same output, otherwise.
    void change(int output, const Output &look);
    void behave(int output, const Behaviour &behaviour);
    /// @param colour red * 65536 + green * 256 + blue
    void paint(int output, std::uint32_t colour);
    /// Something that happens when memory for a picture has come and nothing is written there yet.
    void atNextCopy(std::function<void()> happens);
    /// All connections end, as those of a compositor that crashes.
    void hangUp();
    /// How many pictures were written of it.
    int pictures(int output) const;

private:
    class Server;
    const std::unique_ptr<Server> m_server;
};

} // namespace ostrel
