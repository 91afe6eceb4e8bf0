#include "update/UpdateController.h"

namespace ostrel {

UpdateController::~UpdateController() = default;

} // namespace ostrel
