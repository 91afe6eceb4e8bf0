#pragma once

#include "observer/Keyring.h"

#include <gtest/gtest.h>

#include <optional>

namespace ostrel {

/// A keyring whose state nobody has to ask for, unless the test says what it is.
class FakeKeyring final : public Keyring
{
public:
    void expect(KeyringState state) { m_state = state; }

    KeyringState state() override
    {
        if (!m_state)
            ADD_FAILURE() << "nobody has to ask for the keyring's state";
        return m_state.value_or(KeyringState::Failed);
    }

private:
    std::optional<KeyringState> m_state;
};

} // namespace ostrel
