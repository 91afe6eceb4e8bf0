#include "platform/logind/LockState.h"

#include <algorithm>
#include <functional>

namespace ostrel {

void LockState::say(Voice voice, bool isLocked)
{
    bool &said = m_voices.at(size_t(voice));
    if (said && !isLocked)
        m_isRequested = false;
    said = isLocked;
}

bool LockState::isConfirmed() const
{
    return std::ranges::any_of(m_voices, std::identity());
}

} // namespace ostrel
