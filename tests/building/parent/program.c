/* A parent project's own program. */
#include <kvo_hws/kvo_hws.h>

#include <stdio.h>

int main(void)
{
    printf("headers %s, ready: %d\n", KVO_HWS_VERSION_STRING, KVO_HWS_isInitComplete());
    return 0;
}
