/* Focus and channel information: stores a note at a station, reads it back and deletes it. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    char info[231];
    uint32_t size = sizeof info;
    uint32_t channel = 0;

    if (KVO_HWS_getKVOChannelOnFocus(station, &channel) == KVO_HWS_OK) {
        printf("shows channel %u on focus\n", (unsigned)channel);
    }
    KVO_HWS_setChannelInfo(station, "tool change at 14:00");
    if (KVO_HWS_getChannelInfo(station, info, &size) == KVO_HWS_OK) {
        printf("note: %s\n", info);
    }
    return KVO_HWS_deleteChannelInfo(station) == KVO_HWS_OK ? 0 : 1;
}
