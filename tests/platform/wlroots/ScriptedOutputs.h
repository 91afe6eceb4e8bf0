#pragma once

#include "base/DisplayRules.h"
#include "base/Fault.h"
#include "platform/wlroots/WlrDisplaySource.h"
#include "support/FakeCompositor.h"
#include "support/ScopedVariable.h"
#include "support/WaylandPicture.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace ostrel {

/// Two outputs of a compositor that does as the test says, and what a recording makes of them.
class ScriptedOutputs : public testing::Test
{
protected:
    using Answer = FakeCompositor::Answer;
    using Output = FakeCompositor::Output;
    using Screenshotter = std::unique_ptr<DisplayScreenshotter>;

    static constexpr std::uint32_t blue = 0x336699;
    static constexpr std::uint32_t red = 0xc04020;
    /// Longer than a busy machine takes for an answer.
    static constexpr std::chrono::milliseconds patience{1'000};

    ScriptedOutputs()
    {
        m_left = m_compositor->plugIn(m_leftLook, blue);
        m_right = m_compositor->plugIn(m_rightLook, red);
    }

    static quint32 idOf(const Output &look) { return displayIdentifiers({QString::fromUtf8(look.name)}).first(); }

    ShareableContent content()
    {
        const auto found = m_source.shareableContent();
        if (!found)
            failTest(found.error().localizedDescription);
        return *found;
    }

    CapturableDisplay told(quint32 displayId)
    {
        for (const CapturableDisplay &display : content().displays) {
            if (display.displayId == displayId)
                return display;
        }
        return {};
    }

    Screenshotter opened(quint32 displayId)
    {
        auto screenshotter = m_source.makeScreenshotter({.displayId = displayId, .mode = {}}, {});
        if (!screenshotter)
            failTest(screenshotter.error().localizedDescription);
        return std::move(*screenshotter);
    }
    Screenshotter opened(const Output &look) { return opened(idOf(look)); }

    static WaylandPicture pictureOf(const Screenshotter &screenshotter)
    {
        const auto taken = screenshotter->capture();
        if (!taken || !*taken)
            failTest(taken ? QStringLiteral("no picture") : taken.error().localizedDescription);
        return WaylandPicture::of(**taken);
    }
    static void expectShown(const Screenshotter &screenshotter, QSize size, std::uint32_t colour)
    {
        EXPECT_TRUE(pictureOf(screenshotter) == WaylandPicture::plain(size, colour));
    }
    static void expectFault(const Screenshotter &screenshotter, Fault fault)
    {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), fault)) << qPrintable(taken.error().localizedDescription);
    }

    const Output m_leftLook{.name = "DP-1", .mode = {64, 32}};
    const Output m_rightLook{.name = "DP-2", .mode = {40, 48}, .corner = {64, 0}};
    QTemporaryDir m_folder;
    const ScopedVariable m_runtimeFolder{"XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path())};
    std::optional<FakeCompositor> m_compositor{"scripted"};
    int m_left = 0;
    int m_right = 0;
    WlrDisplaySource m_source{"scripted", {.patience = patience, .unchangedAfter = std::chrono::milliseconds(5)}};
};

} // namespace ostrel
