#pragma once

#include "support/FakeCompositor.h"

#include <screencopy-server.h>

#include <map>
#include <memory>
#include <vector>

namespace ostrel {

/// The pictures of a `FakeCompositor`'s outputs. On its thread, or while that does nothing.
class FakeScreencopy
{
public:
    using Behaviour = FakeCompositor::Behaviour;

    /// @param numberOf the output that a client names
    FakeScreencopy(wl_display *display, std::function<int(wl_resource *)> numberOf);
    FakeScreencopy(const FakeScreencopy &) = delete;
    FakeScreencopy &operator=(const FakeScreencopy &) = delete;
    ~FakeScreencopy();

    void showOutput(int output, QSize mode, std::uint32_t colour);
    /// Its pictures are refused, those under way too.
    void endOutput(int output);
    void resizeOutput(int output, QSize mode);
    void behave(int output, const Behaviour &behaviour);
    void paint(int output, std::uint32_t colour);
    void atNextCopy(std::function<void()> happens) { m_atNextCopy = std::move(happens); }
    int pictures(int output) const { return m_screens.at(output).pictures; }

private:
    struct Screen {
        QSize mode;
        std::uint32_t colour = 0;
        bool isThere = true;
        Behaviour behaviour = {};
        int revision = 1;
        int pictures = 0;
    };
    struct Manager;
    struct Frame;

    static void bind(wl_client *client, void *self, std::uint32_t version, std::uint32_t id);
    static void capture(wl_client *client, wl_resource *manager, std::uint32_t id, int withCursor, wl_resource *output);
    static void copy(wl_resource *resource, wl_resource *buffer, bool whenChanged);

    void describe(Frame &frame);
    void answer(Frame &frame);
    void write(Frame &frame);
    void refuse(Frame &frame);
    bool isWanted(const Frame &frame) const;
    FakeCompositor::Memory memoryOf(const Screen &screen) const;

    const std::function<int(wl_resource *)> m_numberOf;
    std::map<int, Screen> m_screens;
    std::vector<std::unique_ptr<Frame>> m_frames;
    std::function<void()> m_atNextCopy;
};

} // namespace ostrel
