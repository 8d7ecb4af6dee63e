/* Prints the USB events of all stations until Enter is pressed or another program takes the events over. */
#include <kvo_hws/kvo_hws.h>

#include <semaphore.h>
#include <stdio.h>

static sem_t ended;

/* Runs on threads of the library. Several calls may run at the same time; stdio does not mix their lines. */
static int32_t onEvent(UsbEventV2 *event)
{
    switch (event->code) {
    case USB_EVENT_ACTIVATED: puts("waiting for devices"); break;
    case USB_EVENT_NEW_DEVICE:
        printf("%s: new device %s\n", event->payload.device.ipAddress, event->payload.device.ident2);
        break;
    case USB_EVENT_REMOVED:
        printf("%s: %s was removed\n", event->payload.removed.ipAddress, event->payload.removed.ident2);
        break;
    case USB_EVENT_STATE:
        printf("%s: %s is in state %u\n", event->payload.state.ipAddress, event->payload.state.ident2,
               (unsigned)event->payload.state.state);
        break;
    case USB_EVENT_DEVICE_REFUSED:
        printf("%s: %s was refused\n", event->payload.device.ipAddress, event->payload.device.ident2);
        break;
    case USB_EVENT_DEACTIVATED:
    case USB_EVENT_SERVER_FAILED:
    case USB_EVENT_REFUSED:
    case USB_EVENT_NO_SERVICE: sem_post(&ended); break;
    default: break;
    }
    return 0; /* -1 would report a failure to the service */
}

int main(void)
{
    sem_init(&ended, 0, 0);
    if (KVO_HWS_activateUSBEventsV2(onEvent) != KVO_HWS_OK) {
        fputs("cannot activate USB events\n", stderr);
        return 1;
    }
    getchar();
    /* The result is -9 if the events have already ended. Otherwise the callback receives a final code. */
    if (KVO_HWS_closeUSBEvents() == KVO_HWS_OK) {
        sem_wait(&ended);
        puts("ended");
    }
    return 0;
}
