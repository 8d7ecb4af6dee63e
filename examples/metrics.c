/* Metrics and clients: shows what kind of panel a station has and how many clients are connected. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>
#include <stdlib.h>

/* The number of connected clients, or 0 if they cannot be counted. */
static uint32_t count_clients(void)
{
    uint32_t count = 16;
    KvoClientEntry *clients = NULL;
    int32_t result = KVO_HWS_TOO_SMALL;

    /* On KVO_HWS_TOO_SMALL, count is the number that is needed. */
    while (result == KVO_HWS_TOO_SMALL) {
        free(clients);
        clients = calloc(count, sizeof *clients);
        if (clients == NULL) {
            return 0;
        }
        result = KVO_HWS_getClientList(clients, &count, 0);
    }
    free(clients);
    return result == KVO_HWS_OK ? count : 0;
}

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    const uint32_t rotationMetric = 6;
    uint32_t value[2]; /* a metric takes 8 bytes; a number is in the first 4 */

    if (KVO_HWS_getStationMetrics(station, rotationMetric, value) == KVO_HWS_OK) {
        printf("rotation %u\n", (unsigned)value[0]);
    }
    printf("%u clients\n", (unsigned)count_clients());
    puts(KVO_HWS_isMarovantiPanel(station) == KVO_HWS_OK ? "a Marovanti panel" : "another panel");
    return 0;
}
