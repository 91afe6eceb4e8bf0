#pragma once

#include <QString>

namespace ostrel {

/// Where the session's bus listens; empty where there is none. Libraries would start a bus of their own in that case,
/// and whatever one found on it would be new and empty: so it never is "autolaunch:".
QString sessionBusAddress();

/// Where the bus of the whole machine listens, or would if there were one.
QString systemBusAddress();

} // namespace ostrel
