#include "update/InstalledProgram.h"

namespace ostrel {

InstalledProgram InstalledProgram::ofThisProgram()
{
    BundleInfo bundle = BundleInfo::ofThisProgram();
    auto installation = Installation::around(bundle.prefix, std::make_shared<SystemDisk>());
    return {.bundle = std::move(bundle), .installation = std::move(installation)};
}

std::optional<Version> InstalledProgram::version() const
{
    if (installation) {
        if (const auto current = installation->current())
            return current;
    }
    return Version::parse(bundle.shortVersion.value_or(QString()));
}

} // namespace ostrel
