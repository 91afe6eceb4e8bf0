#include "capture/WorkspaceEvents.h"

namespace ostrel {

WorkspaceEvents::~WorkspaceEvents() = default;

} // namespace ostrel
