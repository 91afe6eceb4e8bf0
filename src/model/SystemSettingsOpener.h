#pragma once

namespace ostrel {

/// Opens the page of the desktop's settings where a grant can be given or taken back. Main thread; each call starts
/// the page and returns at once. A desktop without such a page opens nothing, and nobody is told.
class SystemSettingsOpener
{
public:
    virtual ~SystemSettingsOpener() = default;

    virtual void openScreenRecording() = 0;
    virtual void openFilesAndFolders() = 0;
    virtual void openAccessibility() = 0;
};

/// For desktops that have no such pages.
class NullSystemSettingsOpener final : public SystemSettingsOpener
{
public:
    void openScreenRecording() override {}
    void openFilesAndFolders() override {}
    void openAccessibility() override {}
};

} // namespace ostrel
