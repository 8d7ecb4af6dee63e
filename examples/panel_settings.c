/* Panel settings: dims a panel for the night and disables its NumLock key. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    const uint32_t station = 0x0A000005; /* 10.0.0.5 */
    uint32_t disabled = 0;
    int32_t result;

    result = KVO_HWS_setBacklightBrightness(station, 20);
    if (result != KVO_HWS_OK) {
        fprintf(stderr, "the backlight is unchanged: %s\n", kvo_hws_result_text("KVO_HWS_setBacklightBrightness", result));
        return 1;
    }
    KVO_HWS_setDisableNumLock(station, 1);
    if (KVO_HWS_getDisableNumLock(station, &disabled) == KVO_HWS_OK) {
        printf("NumLock is %s\n", disabled ? "disabled" : "enabled");
    }
    return 0;
}
