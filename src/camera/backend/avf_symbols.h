// The entry points of an AVFoundation camera backend, one a line. No library fills this table
// on Linux; a backend is added by filling it. Included with OPTIONAL(name, result, parameters)
// defined, since every use tests its entry; undefined again at the end. No include guard.
#ifndef OPTIONAL
#error "define OPTIONAL(name, result, parameters) first"
#endif

// clang-format off
OPTIONAL(avf_initialize, bool, ())
OPTIONAL(avf_has_auth, int, ())
OPTIONAL(avf_ask_auth, void, ())
OPTIONAL(avf_devices_count, int, ())
OPTIONAL(avf_device_unique_id, void, (int device, void* buffer, int capacity))
OPTIONAL(avf_device_model_id, void, (int device, void* buffer, int capacity))
OPTIONAL(avf_device_name, void, (int device, void* buffer, int capacity))
OPTIONAL(avf_device_type, void, (int device, void* buffer, int capacity))
OPTIONAL(avf_formats_count, int, (int device))
OPTIONAL(avf_format_descriptor, void, (int device, int format, char* buffer, int capacity))
OPTIONAL(avf_start_capture, int, (int device, int width, int height))
OPTIONAL(avf_start_capture_with_format, int, (int device, int format, int encoded))
OPTIONAL(avf_stop_capture, int, (int device))
OPTIONAL(avf_has_first_frame, bool, (int device))
OPTIONAL(avf_frame_width, int, (int device))
OPTIONAL(avf_frame_height, int, (int device))
OPTIONAL(avf_frame_bytes_per_row, int, (int device))
OPTIONAL(avf_frame_data_size, int, (int device))
OPTIONAL(avf_frame_pixel_format, int, (int device))
OPTIONAL(avf_frame_plane_count, int, (int device))
OPTIONAL(avf_frame_plane_offset, int, (int device, int plane))
OPTIONAL(avf_frame_plane_stride, int, (int device, int plane))
OPTIONAL(avf_grab_rgb, bool, (int device, void* buffer, int capacity))
OPTIONAL(avf_grab_native, bool, (int device, void* buffer, int capacity))
OPTIONAL(avf_grab_bgra, bool, (int device, void* buffer, int capacity))
OPTIONAL(avf_set_frame_callback, int, (int device, AvfDirectFrameCallbackFn callback, void* context, int enable))
// clang-format on

#undef OPTIONAL
