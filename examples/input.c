/* Input and display: counts a station's input devices, and prints the resolution of its display. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    uint32_t keyboards = 0;
    uint32_t mice = 0;
    uint32_t touch = 0;
    int32_t dpi = 0;

    if (KVO_HWS_showInputDevice(station, &keyboards, &mice, &touch) != KVO_HWS_OK) {
        return 1;
    }
    printf("%u keyboards, %u mice, %u touch devices\n", (unsigned)keyboards, (unsigned)mice, (unsigned)touch);
    if (KVO_HWS_showDPI(station, &dpi) == KVO_HWS_OK) {
        printf("%d dots per inch\n", (int)dpi);
    }
    return 0;
}
