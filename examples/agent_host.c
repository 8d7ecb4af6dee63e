/* A host program of the remote agent. It carries out the commands that the agent passes to it.
 *
 * The program also reads its input: it pushes each line as an event, and ends when the input ends. */
#include <kvo_hws/kvo_hws.h>

#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

static atomic_bool viewerRuns = true;

/* Runs on the agent's thread, one command at a time. The remote side waits for the result. */
static int onCommand(void *agent, const char *command)
{
    (void)agent;
    printf("asked: %s\n", command);
    fflush(stdout);
    if (strcmp(command, "show-viewer-active") == 0) {
        return viewerRuns ? 1 : 0;
    }
    if (strncmp(command, "stop-viewer", strlen("stop-viewer")) == 0) {
        return atomic_exchange(&viewerRuns, false) ? 1 : 0; /* 0: it was not running */
    }
    if (strcmp(command, "activate-me") == 0) {
        return 0; /* busy */
    }
    if (strncmp(command, "set-statusline=", strlen("set-statusline=")) == 0) {
        return 1;
    }
    return -1; /* a command that this program does not know */
}

int main(void)
{
    void *agent = NULL;
    char event[1024];
    const int started = KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\n"
                                                    "remoteKvoHwsIp=127.0.0.1\n"
                                                    "remoteSession=3\n"
                                                    "kvoIndex=5\n",
                                                    &agent, onCommand);
    if (started != KVO_HWS_OK) {
        fprintf(stderr, "cannot start the agent: %s\n", kvo_hws_result_text("KVO_HWS_startupEmbHwsClient", started));
        return 1;
    }
    while (fgets(event, sizeof event, stdin) != NULL) {
        event[strcspn(event, "\n")] = '\0';
        if (KVO_HWS_sendEmbHwsEvent(agent, event) != KVO_HWS_OK) {
            printf("no request has arrived yet; not sent: %s\n", event);
            fflush(stdout);
        }
    }
    return KVO_HWS_cleanupEmbHwsClient(agent) == KVO_HWS_OK ? 0 : 1;
}
