// The panel program with libuv. Usage: example_panel_libuv [STATION]
#include "terminal.hpp"

#include <uv.h>

namespace {

struct Program {
    Panel &panel;
    Terminal &terminal;
};

void draw(uv_timer_t *handle)
{
    const auto &[panel, terminal] = *static_cast<Program *>(handle->data);
    panel.draw_next();
    terminal.draw(panel);
}

void provide_buffer(uv_handle_t *, std::size_t, uv_buf_t *buffer)
{
    static char keys[64];
    *buffer = uv_buf_init(keys, sizeof keys);
}

void handle_keys(uv_stream_t *input, ssize_t count, const uv_buf_t *buffer)
{
    const auto &[panel, terminal] = *static_cast<Program *>(input->data);
    if (count != 0 && !terminal.handle_keys(panel, buffer->base, count)) {
        uv_stop(input->loop);
    }
}

}  // namespace

int main(int argc, char **argv)
{
    auto requests = kvo::Requests::create();
    const auto address = kvo::Address::parse(argc > 1 ? argv[1] : "10.0.0.5");
    if (!requests || !address) {
        std::fprintf(stderr, "%s\n", (requests ? address.error() : requests.error()).message().c_str());
        return 1;
    }
    Panel panel(*requests, kvo::Station(*address));
    Terminal terminal;
    Program program{panel, terminal};

    uv_loop_t loop;
    uv_loop_init(&loop);
    uv_poll_t replies;
    uv_poll_init(&loop, &replies, requests->descriptor());
    replies.data = &*requests;
    uv_poll_start(&replies, UV_READABLE,
                  [](uv_poll_t *handle, int, int) { static_cast<kvo::Requests *>(handle->data)->dispatch(); });

    uv_timer_t clock;
    uv_timer_init(&loop, &clock);
    clock.data = &program;
    uv_timer_start(&clock, draw, 0, Panel::frame.count());

    uv_tty_t keyboard;
    uv_pipe_t pipe;
    uv_stream_t *keys = reinterpret_cast<uv_stream_t *>(&keyboard);
    if (uv_tty_init(&loop, &keyboard, STDIN_FILENO, 0) != 0) {
        uv_pipe_init(&loop, &pipe, 0);
        uv_pipe_open(&pipe, STDIN_FILENO);
        keys = reinterpret_cast<uv_stream_t *>(&pipe);
    }
    keys->data = &program;
    uv_read_start(keys, provide_buffer, handle_keys);
    uv_run(&loop, UV_RUN_DEFAULT);

    uv_walk(
        &loop, [](uv_handle_t *handle, void *) { uv_close(handle, nullptr); }, nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}
