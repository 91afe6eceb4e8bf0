#pragma once

namespace ostrel {

/// How far one gets with the desktop's keyring at the moment.
enum class KeyringState {
    Ready,               ///< it can be read and written
    Locked,              ///< its user would have to unlock it
    NoDefaultCollection, ///< it has never been set up: there is nothing that could be unlocked
    NoService,           ///< nothing on the session bus is a keyring
    ServiceSilent,       ///< there is one, and it does not answer
    NoBus,               ///< there is no session bus, or it has gone
    BusSilent,           ///< the session bus does not answer
    Failed,              ///< it refused for a reason of its own
};

/// The desktop's keyring, for whoever wants to tell its user about it.
class Keyring
{
public:
    virtual ~Keyring() = default;

    /// Asks it, without ever prompting. May block for as long as a call to the secret store may. Any thread.
    virtual KeyringState state() = 0;
};

} // namespace ostrel
