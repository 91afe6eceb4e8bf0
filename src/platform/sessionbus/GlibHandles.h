#pragma once

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <memory>

namespace ostrel {

/// Owners of GLib's objects.
struct GlibDelete {
    void operator()(GAsyncResult *object) const { g_object_unref(object); }
    void operator()(GCancellable *object) const { g_object_unref(object); }
    void operator()(GDBusConnection *object) const { g_object_unref(object); }
    void operator()(GDBusMessage *object) const { g_object_unref(object); }
    void operator()(GDBusMethodInvocation *object) const { g_object_unref(object); }
    void operator()(GUnixFDList *object) const { g_object_unref(object); }
    void operator()(GDBusNodeInfo *node) const { g_dbus_node_info_unref(node); }
    void operator()(GMainContext *context) const { g_main_context_unref(context); }
    void operator()(GMainLoop *loop) const { g_main_loop_unref(loop); }
    void operator()(GSource *source) const { g_source_unref(source); }
    void operator()(GVariant *variant) const { g_variant_unref(variant); }
    void operator()(GError *error) const { g_error_free(error); }
};

template <class T>
using GlibHandle = std::unique_ptr<T, GlibDelete>;

/// Takes the error that a GLib function sets: `f(..., ErrorOut(error))`.
class ErrorOut
{
public:
    explicit ErrorOut(GlibHandle<GError> &error) : m_error(error) {}
    ErrorOut(const ErrorOut &) = delete;
    ErrorOut &operator=(const ErrorOut &) = delete;
    ~ErrorOut() { m_error.reset(m_raw); }
    operator GError **() { return &m_raw; } // NOLINT(google-explicit-constructor): GLib's own form of it

private:
    GlibHandle<GError> &m_error;
    GError *m_raw = nullptr;
};

} // namespace ostrel
