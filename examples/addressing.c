/* Addressing: finds the station that serves machine control panel 5. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t panel = 5;
    uint32_t station = 0;

    KVO_HWS_setMCPAddress(0x0A000005, panel);
    switch (KVO_HWS_getIPbyMCPAddress(panel, &station)) {
    case KVO_HWS_OK:
        printf("panel %u is served by %u.%u.%u.%u\n", (unsigned)panel, (unsigned)(station >> 24),
               (unsigned)(station >> 16 & 255U), (unsigned)(station >> 8 & 255U), (unsigned)(station & 255U));
        return 0;
    case KVO_HWS_NO: puts("no station serves it"); return 1;
    case KVO_HWS_AMBIGUOUS: puts("several stations serve it"); return 1;
    default: puts("the request failed"); return 1;
    }
}
