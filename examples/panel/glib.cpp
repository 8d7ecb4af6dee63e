// The panel program with GLib, as in a program with GTK. Usage: example_panel_glib [STATION]
#include "terminal.hpp"

#include <glib-unix.h>

namespace {

struct Program {
    Panel &panel;
    Terminal &terminal;
    GMainLoop *loop;
};

gboolean draw(gpointer program)
{
    const auto &[panel, terminal, loop] = *static_cast<Program *>(program);
    panel.draw_next();
    terminal.draw(panel);
    return G_SOURCE_CONTINUE;
}

gboolean handle_keys(gint, GIOCondition, gpointer program)
{
    const auto &[panel, terminal, loop] = *static_cast<Program *>(program);
    if (!terminal.read_keys(panel)) {
        g_main_loop_quit(loop);
        return G_SOURCE_REMOVE;
    }
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char **argv)
{
    auto requests = kvo::Requests::create();
    const auto address = kvo::Address::parse(argc > 1 ? argv[1] : "10.0.0.5");
    if (!requests || !address) {
        g_printerr("%s\n", (requests ? address.error() : requests.error()).message().c_str());
        return 1;
    }
    Panel panel(*requests, kvo::Station(*address));
    Terminal terminal;

    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    Program program{panel, terminal, loop};
    const guint replies = g_unix_fd_add(
        requests->descriptor(), G_IO_IN,
        [](gint, GIOCondition, gpointer data) -> gboolean {
            static_cast<kvo::Requests *>(data)->dispatch();
            return G_SOURCE_CONTINUE;
        },
        &*requests);
    g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), handle_keys, &program);
    const guint clock = g_timeout_add(Panel::frame.count(), draw, &program);
    g_main_loop_run(loop);

    g_source_remove(replies);
    g_source_remove(clock);
    g_main_loop_unref(loop);
}
