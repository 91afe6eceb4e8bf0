#pragma once

#include "observer/TokenStore.h"

#include <QString>

namespace ostrel {

/// The token that the program and its observer share, created on first use. Where none can be had from the store, a
/// random UUID, valid for this run only. Blocks on the store: read it once, before the model is built.
QString localApiTokenOrFallback(SecretStore &secrets, const SecureRandom &random = systemSecureRandom);

} // namespace ostrel
