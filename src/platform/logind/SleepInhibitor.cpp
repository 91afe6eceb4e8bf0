#include "platform/logind/SleepInhibitor.h"

#include "platform/logind/LogindNames.h"

#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

class DescriptorHold final : public SystemHold
{
public:
    explicit DescriptorHold(int descriptor) : m_descriptor(descriptor) {}
    DescriptorHold(const DescriptorHold &) = delete;
    DescriptorHold &operator=(const DescriptorHold &) = delete;
    ~DescriptorHold() override { ::close(m_descriptor); }

private:
    const int m_descriptor;
};

class EmptyHold final : public SystemHold
{};

/// @return floating
GVariant *arguments()
{
    return g_variant_new("(ssss)", "sleep:shutdown", "Tamsk Ostrel", "It hands over its last pictures.", "delay");
}

/// The descriptor that an answer names; -1 where it names none. GLib closes it for programs that we start.
int descriptorIn(GVariant *answer, GUnixFDList *files)
{
    gint32 index = -1;
    g_variant_get(answer, "(h)", &index);
    if (files == nullptr || index < 0 || index >= g_unix_fd_list_get_length(files))
        return -1;
    return g_unix_fd_list_get(files, index, nullptr);
}

} // namespace

bool SleepInhibitor::take(const BusLine &line, GlibHandle<GError> &error)
{
    const auto answer = callBusForFiles(
        line, {LogindNames::service, LogindNames::path, LogindNames::manager, "Inhibit"}, arguments(), "(h)", error);
    if (!answer.value)
        return false;
    const int descriptor = descriptorIn(answer.value.get(), answer.files.get());
    if (descriptor < 0) {
        error.reset(g_error_new_literal(G_IO_ERROR, G_IO_ERROR_INVALID_DATA, "its answer holds no descriptor"));
        return false;
    }
    m_hold = std::make_shared<DescriptorHold>(descriptor);
    return true;
}

std::shared_ptr<SystemHold> SleepInhibitor::handOver()
{
    return m_hold ? std::exchange(m_hold, nullptr) : std::make_shared<EmptyHold>();
}

} // namespace ostrel
