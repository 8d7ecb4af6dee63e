/* Prints events for embedded stations until Enter is pressed. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

/* Runs on the listener's thread. */
static void onEvent(const char *name, const char *data)
{
    printf("%s: %s\n", name, data);
    fflush(stdout);
}

int main(void)
{
    if (KVO_HWS_activateEmbKvoEvents(onEvent) != KVO_HWS_OK) {
        fputs("cannot listen for events\n", stderr);
        return 1;
    }
    getchar();
    KVO_HWS_deactivateEmbKvoEvents();
    return 0;
}
