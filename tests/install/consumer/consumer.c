/* Creates and closes a handle through an installed copy of the library. */
#include <VyxPositionAPI.h>
#include <stdio.h>

int main(void) {
    VyxHandle handle = NULL;
    if (Vyx_API_Initial(&handle) != RV_SUCCESS) return 1;
    printf("%s\n", Vyx_API_GetLibVersion());
    return Vyx_API_Close(&handle) == RV_SUCCESS && handle == NULL ? 0 : 1;
}
