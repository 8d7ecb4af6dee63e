/* Panel settings: a dark panel for the night, without the NumLock key. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    uint32_t disabled = 0;

    if (KVO_HWS_setBacklightBrightness(station, 20) != KVO_HWS_OK) {
        fputs("the backlight stays as it is\n", stderr);
        return 1;
    }
    KVO_HWS_setDisableNumLock(station, 1);
    if (KVO_HWS_getDisableNumLock(station, &disabled) == KVO_HWS_OK) {
        printf("NumLock is %s\n", disabled ? "disabled" : "enabled");
    }
    return 0;
}
