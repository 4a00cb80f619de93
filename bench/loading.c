// Loads Varnel.dll, and with it all modules that it needs, and says how many milliseconds that took.
#include <windows.h>
#include <stdio.h>

int main(void) {
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    const HMODULE module = LoadLibraryA("Varnel.dll");
    QueryPerformanceCounter(&end);
    printf("%.2f\n", 1000.0 * (double)(end.QuadPart - start.QuadPart) / (double)frequency.QuadPart);
    return module == NULL;
}
