/* Viewer: starts the viewer of a station, prints what it shows, and stops it. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    char server[1025];
    char display[1025];
    uint32_t serverSize = sizeof server;
    uint32_t displaySize = sizeof display;

    KVO_HWS_setStopViewer(station); /* the result 0 means that no viewer was running; this is not a failure */
    if (KVO_HWS_setStartViewer(station, "10.0.0.7", "3", "") != KVO_HWS_OK) {
        return 1;
    }
    if (KVO_HWS_getCurrentServer(station, server, &serverSize, display, &displaySize) == KVO_HWS_OK) {
        printf("shows display %s of %s\n", display, server);
    }
    return KVO_HWS_setStopViewer(station) == KVO_HWS_OK ? 0 : 1;
}
