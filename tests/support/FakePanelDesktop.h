#pragma once

#include "app/tray/PanelDesktop.h"

#include <QWindow>

#include <gtest/gtest.h>

namespace ostrel {

/// A window system that the test plays.
class FakePanelDesktop : public PanelDesktop
{
public:
    bool composited = false;
    std::optional<QColor> foreground;
    int shadow = -1; ///< as it was set last
    std::function<void()> pressed;
    int monitors = 0; ///< that are there now
    int keptOut = 0;  ///< how often a window was to be in no list

    bool isComposited() const override { return composited; }
    std::optional<QColor> trayForeground() const override { return foreground; }
    std::unique_ptr<ClickMonitor> monitorClicks(std::function<void()> tell) override
    {
        pressed = std::move(tell);
        return std::make_unique<Monitor>(monitors);
    }
    void setShadow(QWindow & /*window*/, int width) override { shadow = width; }
    void keepOutOfLists(QWindow &window) override
    {
        EXPECT_FALSE(window.isVisible());
        ++keptOut;
    }

    void setComposited(bool now)
    {
        composited = now;
        Q_EMIT compositedChanged();
    }

private:
    class Monitor final : public ClickMonitor
    {
    public:
        explicit Monitor(int &count) : m_count(count) { ++m_count; }
        Monitor(const Monitor &) = delete;
        Monitor &operator=(const Monitor &) = delete;
        ~Monitor() override { --m_count; }

    private:
        int &m_count;
    };
};

} // namespace ostrel
