/* SPDX-License-Identifier: MIT */
/* A plugin host: loads the library, works with it and closes it, over and over. Usage: reload_test LIBRARY */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tavi_image.h"

static long resident_pages(void) {
    long size = 0, resident = 0;
    FILE* file = fopen("/proc/self/statm", "r");
    const int found = file ? fscanf(file, "%ld %ld", &size, &resident) : 0;
    if (file)
        fclose(file);
    return found == 2 ? resident : -1;
}

int main(int argc, char** argv) {
    long before = 0;
    int round;
    for (round = 0; argc > 1 && round < 40; ++round) {
        void* const library = dlopen(argv[1], RTLD_NOW);
        int (*create)(tavi_image_t*, int);
        int (*release)(tavi_image_t*);
        tavi_image_t img = {0};
        if (!library)
            return puts(dlerror()), 1;
        *(void**)&create = dlsym(library, "tavi_image_create_mem2");
        *(void**)&release = dlsym(library, "tavi_image_release");
        img.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
        img.width = 1600;
        img.height = 1600;
        if (create(&img, 0) != 0)
            return puts("no memory"), 1;
        memset(img.data, 1, img.size); /* the pool keeps it */
        release(&img);
        dlclose(library);
        if (round == 1)
            before = resident_pages();
    }
    printf("%ld pages more after 38 rounds\n", resident_pages() - before);
    return round == 40 && resident_pages() - before < 256 ? 0 : 1;
}
