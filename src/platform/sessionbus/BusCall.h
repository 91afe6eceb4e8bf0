#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

#include <chrono>
#include <optional>

namespace ostrel {

struct BusMethod {
    const char *service;
    const char *path;
    const char *interface;
    const char *name;
};

/// Where a call goes, for how long its answer is awaited, and what ends the waiting early (may be null).
struct BusLine {
    GDBusConnection *connection = nullptr;
    std::chrono::milliseconds patience{1000};
    GCancellable *cancellable = nullptr;
};

/// Calls and blocks until there is an answer. Starts no service.
/// @param arguments taken over; may be null
/// @param answerType any other answer counts as an error
/// @return null, with the error set, without one
GlibHandle<GVariant> callBus(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                             GlibHandle<GError> &error);

struct BusAnswer {
    GlibHandle<GVariant> value;    ///< null, with the error set, without one
    GlibHandle<GUnixFDList> files; ///< null where the answer brings none
};

/// The same for a method that answers with descriptors.
BusAnswer callBusForFiles(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                          GlibHandle<GError> &error);

/// A property that is a truth value; nothing where it is none, or where nobody answers.
std::optional<bool> readBusFlag(const BusLine &line, const BusMethod &object, const char *property);

/// Whether somebody has this name on the bus; nothing where the bus does not answer.
std::optional<bool> hasOwner(const BusLine &line, const char *service);

/// The name that nobody else can have of whoever has this one. @return empty, with the error set, where nobody has it
/// or the bus does not answer
QByteArray ownerOf(const BusLine &line, const char *service, GlibHandle<GError> &error);

/// The truth value in a box; nothing where another thing is in it.
std::optional<bool> flagIn(GVariant *value);

} // namespace ostrel
