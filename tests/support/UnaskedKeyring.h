#pragma once

#include "observer/Keyring.h"

#include <gtest/gtest.h>

namespace ostrel {

/// A keyring whose state nobody has to ask for.
class UnaskedKeyring final : public Keyring
{
public:
    KeyringState state() override
    {
        ADD_FAILURE() << "nobody has to ask for the keyring's state";
        return KeyringState::Failed;
    }
};

} // namespace ostrel
