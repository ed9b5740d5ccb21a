// The entry points of the V4L2 camera library `libcnokhwa.so`, one a line, in the order in
// which they are resolved. Included with REQUIRED(name, result, parameters) and OPTIONAL(...)
// defined; both are undefined again at the end. There is no include guard on purpose.
//
// `device` is script code's device index, `format` an index into that device's formats.
#ifndef REQUIRED
#error "define REQUIRED(name, result, parameters) and OPTIONAL(name, result, parameters) first"
#endif

// clang-format off
REQUIRED(cnokhwa_initialize, int, ())                        // 0 on success
REQUIRED(cnokhwa_has_videocapture_auth, int, ())             // 0 when capture is authorised
REQUIRED(cnokhwa_ask_videocapture_auth, void, ())
REQUIRED(cnokhwa_devices_count, int, ())
REQUIRED(cnokhwa_device_unique_id, int, (int device, void* buffer, int capacity))
REQUIRED(cnokhwa_device_model_id, int, (int device, void* buffer, int capacity))
REQUIRED(cnokhwa_device_name, int, (int device, void* buffer, int capacity))
REQUIRED(cnokhwa_device_formats_count, int, (int device))
REQUIRED(cnokhwa_device_format_width, int, (int device, int format))       // pixels
REQUIRED(cnokhwa_device_format_height, int, (int device, int format))      // pixels
REQUIRED(cnokhwa_device_format_frame_rate, int, (int device, int format))  // frames a second
REQUIRED(cnokhwa_device_format_type, void, (int device, int format, char* buffer, int capacity))
REQUIRED(cnokhwa_start_capture, int, (int device, int width, int height))  // 0 or more: success
REQUIRED(cnokhwa_stop_capture, int, (int device))            // device may be negative
REQUIRED(cnokhwa_has_first_frame, int, (int device))         // 0: yes, -256: not yet
REQUIRED(cnokhwa_frame_width, int, (int device))             // pixels
REQUIRED(cnokhwa_frame_height, int, (int device))            // pixels
REQUIRED(cnokhwa_frame_bytes_per_row, int, (int device))     // 3 bytes a pixel or more
REQUIRED(cnokhwa_grab_frame, int, (int device, void* buffer, int capacity))  // RGB rows; 0: success
OPTIONAL(cnokhwa_start_capture_with_format, int, (int device, int format))
// clang-format on

#undef REQUIRED
#undef OPTIONAL
