#pragma once

#include "model/SystemSettingsOpener.h"

#include <QStringList>

namespace ostrel {

/// Notes which pages were opened: "screen", "files", "accessibility".
class FakeSystemSettingsOpener final : public SystemSettingsOpener
{
public:
    QStringList opened;

    void openScreenRecording() override { opened.append(QStringLiteral("screen")); }
    void openFilesAndFolders() override { opened.append(QStringLiteral("files")); }
    void openAccessibility() override { opened.append(QStringLiteral("accessibility")); }
};

} // namespace ostrel
