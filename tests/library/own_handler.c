/* A program defines a function with the name of a handler: the agent still calls the library's handler, but cmds contains the
   program's function. */
#include <kvo_hws/agent.h>

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static int called;

void handle_ping(HmiSession *session, const char *tag, char *argument)
{
    (void)session;
    (void)tag;
    (void)argument;
    called = 1;
}

int main(void)
{
    int ends[2];
    char line[257] = {0};
    char reply[16] = {0};
    HmiServer server = {0};
    HmiSession session = {0};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0 || write(ends[1], "ping\n", 5) != 5) {
        perror("socketpair");
        return 1;
    }
    session.server = &server;
    session.socket = ends[0];
    session.lineBuffer = line;
    hmiconn_process_one_request(&session);
    if (recv(ends[1], reply, sizeof reply - 1, MSG_DONTWAIT) < 0 || strcmp(reply, "pong\r\n") != 0 || called) {
        printf("the agent answered \"%s\", and the program's handler was %scalled\n", reply, called ? "" : "not ");
        return 1;
    }
    for (size_t row = 0; row < sizeof cmds / sizeof *cmds; ++row) {
        if (strcmp(cmds[row].keyword, "ping") == 0 && cmds[row].handler == handle_ping) {
            return 0;
        }
    }
    printf("cmds does not have the program's own function\n");
    return 1;
}
