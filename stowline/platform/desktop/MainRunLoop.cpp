#include "stowline/platform/desktop/MainRunLoop.h"

#include <glib.h>

#include <memory>

namespace stowline::platform {

namespace {

GMainLoop* mainLoop()
{
    static GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    return loop;
}

gboolean runTask(gpointer task)
{
    (*static_cast<std::function<void()>*>(task))();
    return G_SOURCE_REMOVE;
}

void destroyTask(gpointer task)
{
    const std::unique_ptr<std::function<void()>> owner(static_cast<std::function<void()>*>(task));
}

} // namespace

void MainRunLoop::perform(std::function<void()> task)
{
    auto owned = std::make_unique<std::function<void()>>(std::move(task));
    g_idle_add_full(G_PRIORITY_DEFAULT, runTask, owned.release(), destroyTask);
}

void MainRunLoop::run()
{
    g_main_loop_run(mainLoop());
}

void MainRunLoop::stop()
{
    perform([] { g_main_loop_quit(mainLoop()); });
}

} // namespace stowline::platform
