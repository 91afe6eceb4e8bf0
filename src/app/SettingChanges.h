#pragma once

#include "app/RunningApplication.h"

#include <optional>

namespace ostrel {

class AppModel;
class SecretStore;

/// Changes a setting in the running model. The model outlives the wait, and is let go of when it ends it.
Task<SettingAnswer> changeInModel(AppModel *model, SettingChange change);

/// Changes a setting on the disk while nothing records. Blocks on disk and secret store.
/// @return nothing when a recorder has started meanwhile, which is then the one to ask; nothing has changed
std::optional<SettingAnswer> changeOnDisk(SecretStore &secrets, const SettingChange &change);

} // namespace ostrel
