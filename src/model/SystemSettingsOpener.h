#pragma once

namespace ostrel {

/// Opens the page of the desktop's settings where a grant can be given or taken back. Main thread; each call starts
/// the page and returns at once. Where there is nothing to open, nobody is told.
class SystemSettingsOpener
{
public:
    virtual ~SystemSettingsOpener() = default;

    virtual void openScreenRecording() = 0;
    virtual void openFilesAndFolders() = 0;
    virtual void openAccessibility() = 0;
};

} // namespace ostrel
