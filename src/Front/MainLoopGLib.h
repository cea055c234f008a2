// SPDX-License-Identifier: MIT
// The library's main thread within a GLib (GTK) main loop. Header only: the program links GLib.
#pragma once

#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>

#include <glib.h>

namespace qmx
{

/// A source of a GLib context that runs what the library queues for the main thread. It stays until detach(), with or
/// without this handle.
class GLibAttachment
{
public:
    explicit GLibAttachment(GSource* source) : source_(source) {}

    /// Ends it, once.
    void detach()
    {
        g_source_destroy(source_);
        g_source_unref(source_);
    }

private:
    GSource* source_; ///< one reference
};

/// From now on the loop of `context` (null: the default one) delivers the library's timers, notifications and
/// callbacks. Main thread: the one that runs the loop. Once per program.
inline GLibAttachment attachToGLib(GMainContext* context = nullptr)
{
    static GSourceFuncs functions{.prepare = nullptr,
                                  .check = nullptr,
                                  .dispatch = [](GSource*, GSourceFunc, gpointer) -> gboolean {
                                      RunLoop::main().runOnce();
                                      return G_SOURCE_CONTINUE;
                                  },
                                  .finalize = nullptr,
                                  .closure_callback = nullptr,
                                  .closure_marshal = nullptr};
    GSource* const source = g_source_new(&functions, sizeof(GSource));
    g_source_add_unix_fd(source, RunLoop::main().fileDescriptor(), G_IO_IN);
    g_source_set_can_recurse(source, TRUE); // dialogs run loops of their own
    g_source_attach(source, context);
    return GLibAttachment(source);
}

} // namespace qmx
