/*
 * The Vistel service's client entry points, as the host service implements them. The telemetry
 * library does not include this header: it binds these names with dlsym(). Tests and tools that
 * drive the service directly do.
 *
 *     void* event = vistel_create_eventobj(918000000);
 *     vistel_set_param_integer_v2(event, "iso", 100);
 *     int sent = vistel_send_event(event);  // non-zero when sent
 *     vistel_destroy_eventobj(event);
 */

#pragma once

#define VISTEL_CLIENT_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// A new event object for eventId, or null.
VISTEL_CLIENT_EXPORT void* vistel_create_eventobj(unsigned int eventId);
// The setters return 0 on success. value is stored as given: an integer or a text's address.
VISTEL_CLIENT_EXPORT int vistel_set_param(void* obj, unsigned short paramIndex, long value);
VISTEL_CLIENT_EXPORT int vistel_set_param_integer_v2(void* obj, const char* name, long value);
VISTEL_CLIENT_EXPORT int vistel_set_param_float_v2(void* obj, const char* name, float value);
VISTEL_CLIENT_EXPORT int vistel_set_param_string_v2(void* obj, const char* name, const char* value);
// Each appends one element to the array parameter called name.
VISTEL_CLIENT_EXPORT int vistel_fill_array_param_integer_v2(void* obj, const char* name,
                                                            long value);
VISTEL_CLIENT_EXPORT int vistel_fill_array_param_float_v2(void* obj, const char* name, float value);
VISTEL_CLIENT_EXPORT int vistel_fill_array_param_string_v2(void* obj, const char* name,
                                                           const char* value);
// The event's time in milliseconds. Returns 0 on success.
VISTEL_CLIENT_EXPORT int vistel_set_time(void* obj, long long timeMs);
// Non-zero when the event was sent, 0 when not: the opposite sense to the setters.
VISTEL_CLIENT_EXPORT int vistel_send_event(void* obj);
// Frees the object. Sending does not.
VISTEL_CLIENT_EXPORT void vistel_destroy_eventobj(void* obj);

#ifdef __cplusplus
}  // extern "C"
#endif
