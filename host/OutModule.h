#ifndef VELORINE_HOST_OUTMODULE_H
#define VELORINE_HOST_OUTMODULE_H

/* The record that an output plug-in hands to its host: published layout, version 16, for C and C++.
 *
 * `hMainWindow` and `hDllInstance` are the host's to fill before `Init`. On Windows the window is
 * the host's main window. Elsewhere it points to a VelorineHostWindow, and 0 and -1 mean none. */

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): for C too */

#ifdef __cplusplus
extern "C" {
#endif

#define VELORINE_OUT_VERSION 16

/* Window messages to the host: VELORINE_WM_USER, the second value in lParam. */
#define VELORINE_WM_USER 1024

/* What stands for the host's window where there are none. `send` answers as a window procedure
 * would and may be called from any of the plug-in's threads and inside of its entry points. */
typedef struct VelorineHostWindow {
    intptr_t (*send)(struct VelorineHostWindow* window, unsigned message, uintptr_t wParam,
                     intptr_t lParam);
    void* user;
} VelorineHostWindow;

typedef struct Out_Module {
    int version;
    char* description;
    intptr_t id;
    void* hMainWindow;
    void* hDllInstance;

    void (*Config)(void* hwndParent);
    void (*About)(void* hwndParent);
    void (*Init)(void);
    void (*Quit)(void);

    /* 0 or above: the largest latency in ms. */
    int (*Open)(int samplerate, int numchannels, int bitspersamp, int bufferlenms, int prebufferms);
    void (*Close)(void);

    /* 0: the data was taken. Bytes, whole frames. */
    int (*Write)(char* buf, int len);

    /* Bytes that may be written now. */
    int (*CanWrite)(void);
    int (*IsPlaying)(void);

    /* Returns the state before. */
    int (*Pause)(int pause);

    void (*SetVolume)(int volume); /* 0 to 255 */
    void (*SetPan)(int pan);       /* -128 to 128 */

    void (*Flush)(int t);        /* seeks: the next data is from t ms on */
    int (*GetOutputTime)(void);  /* ms heard */
    int (*GetWrittenTime)(void); /* ms written */
} Out_Module;

#ifdef __cplusplus
}
#endif

#endif
