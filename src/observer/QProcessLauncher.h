#pragma once

#include "observer/ProcessLauncher.h"

namespace ostrel {

/// Real children. Each runs in a session of its own, so that an interrupt typed at our terminal reaches only us, with
/// no descriptor of ours but its three and no signal blocked. A child that nobody holds any more goes on running; it
/// is reaped when it ends while we live, and left to the system when we end first. Main thread.
class QProcessLauncher final : public ProcessLauncher
{
public:
    Result<std::unique_ptr<ChildProcess>> launch(const ProcessDescription &description) override;
};

} // namespace ostrel
