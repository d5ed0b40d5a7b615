/* Creates a tracker handle, prints the library's version text and closes the
 * handle again: the smallest complete use of the library. */
#include <stdio.h>

#include "VyxPositionAPI.h"

int main(void) {
    VyxHandle handle = NULL;
    int rc = Vyx_API_Initial(&handle);
    if (rc != RV_SUCCESS) {
        fprintf(stderr, "Vyx_API_Initial failed: %d\n", rc);
        return 1;
    }
    printf("%s\n", Vyx_API_GetLibVersion());
    rc = Vyx_API_Close(&handle);
    if (rc != RV_SUCCESS || handle != NULL) {
        fprintf(stderr, "Vyx_API_Close failed: %d\n", rc);
        return 1;
    }
    return 0;
}
