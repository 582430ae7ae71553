#pragma once

/* The PDF being written, as a loaded module sees it: plain callbacks over our writer, so that
   a module can add objects to it without knowing its type. Each callback returns PW_MODULE_OK;
   anything else means the writer failed, and the module stops and returns PW_MODULE_FAILED. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct pw_pdf_sink {
    void *context;
    /* A fresh object number in *number; the object itself may be written later. */
    int32_t (*reserve)(void *context, int32_t *number);
    int32_t (*begin_object)(void *context, int32_t number);
    int32_t (*write)(void *context, const uint8_t *data, size_t size);
    int32_t (*end_object)(void *context);
    /* A page object written by the module, in the order the pages are to appear. */
    int32_t (*add_page)(void *context, int32_t number);
} pw_pdf_sink;

#ifdef __cplusplus
}
#endif
