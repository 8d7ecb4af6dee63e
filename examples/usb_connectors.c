/* USB: shows the lock of one station and the connectors of all stations. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    uint32_t first = 0;
    uint32_t second = 0;
    uint32_t size = 256;
    char *list = NULL;
    int32_t result = KVO_HWS_TOO_SMALL;

    if (KVO_HWS_getUsbLock(0x0A000005, &first, &second) == KVO_HWS_OK) {
        printf("lock %u:%u\n", (unsigned)first, (unsigned)second);
    }
    /* On KVO_HWS_TOO_SMALL, size is the list's length. The buffer must be one byte longer. The list is not null-terminated. */
    while (result == KVO_HWS_TOO_SMALL) {
        free(list);
        size += 1;
        list = calloc(size, 1);
        if (list == NULL) {
            return 1;
        }
        result = KVO_HWS_getUsbConnectorList(list, &size);
    }
    if (result == KVO_HWS_OK) {
        printf("connectors: %.*s\n", (int)size, list);
    }
    free(list);
    return result >= 0 ? 0 : 1;
}
