/* Prints the stations that the hardware service knows, in C. Start with this program. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    uint32_t count = 64;
    KvoDescription *stations = NULL;
    int32_t result = KVO_HWS_TOO_SMALL;

    /* On KVO_HWS_TOO_SMALL, count is the number that is needed. The list may grow before the next call, so this is a loop. */
    while (result == KVO_HWS_TOO_SMALL) {
        free(stations);
        stations = calloc(count, sizeof *stations);
        if (stations == NULL) {
            return 1;
        }
        result = KVO_HWS_getDescriptionList(stations, &count);
    }
    if (result != KVO_HWS_OK) {
        fprintf(stderr, "no station list: %s\n", kvo_hws_result_text("KVO_HWS_getDescriptionList", result));
        free(stations);
        return 1;
    }
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t address = stations[i].address;
        printf("%u.%u.%u.%u  %s\n", address >> 24, address >> 16 & 255U, address >> 8 & 255U, address & 255U, stations[i].name);
    }
    free(stations);
    return 0;
}
