#pragma once

#include <QCoroTask>

namespace ostrel {

/// The return type of a coroutine. It starts at once and runs on the thread that calls it. Never drop one: a dropped
/// task can't be cancelled and what it throws is lost. Await it, or hand its maker to a TaskSlot or a TaskScope.
template <class T = void>
using Task = QCoro::Task<T>;

} // namespace ostrel
