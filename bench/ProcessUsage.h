#pragma once

#include <QtGlobal>

namespace ostrel {

/// Processor time of this process, all threads, in milliseconds.
double ownCpuMs();
/// Processor time of another process, all threads, in milliseconds. Waits until it sleeps, for the kernel accounts for
/// a running thread only now and then.
double cpuMsOf(qint64 pid);
/// The memory that a process takes up, in bytes; what it shares with n others counts as an nth.
qint64 proportionalBytesOf(qint64 pid);

} // namespace ostrel
