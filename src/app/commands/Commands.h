#pragma once

#include "app/Command.h"

namespace ostrel {

/// One function a command; what each does and prints stands in its file.
Command recordCommand();
Command journalCommand();
Command displaysCommand();
Command contextCommand();
Command permissionsCommand();
Command settingsCommand();
Command archiveCommand();
Command statusCommand();
Command previewCommand();
Command forgetCommand();
Command doctorCommand();
Command updateCommand();
Command autostartCommand();

} // namespace ostrel
