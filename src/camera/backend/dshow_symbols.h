// The entry points of a DirectShow camera backend, one a line. No library fills this table on
// Linux; a backend is added by filling it. Included with OPTIONAL(name, result, parameters)
// defined, since every use tests its entry; undefined again at the end. No include guard.
#ifndef OPTIONAL
#error "define OPTIONAL(name, result, parameters) first"
#endif

// clang-format off
OPTIONAL(cdshow_initialize, int, ())
OPTIONAL(cdshow_devices_count, int, ())
OPTIONAL(cdshow_device_unique_id, void, (int device, void* buffer, int capacity))
OPTIONAL(cdshow_device_model_id, void, (int device, void* buffer, int capacity))
OPTIONAL(cdshow_device_name, void, (int device, void* buffer, int capacity))
OPTIONAL(cdshow_formats_count, int, (int device))
OPTIONAL(cdshow_format_width, int, (int device, int format))
OPTIONAL(cdshow_format_height, int, (int device, int format))
OPTIONAL(cdshow_format_frame_rate, int, (int device, int format))
OPTIONAL(cdshow_format_type, void, (int device, int format, char* buffer, int capacity))
OPTIONAL(cdshow_start_capture, int, (int device, int width, int height))
OPTIONAL(cdshow_start_capture_with_format, int, (int device, int format))
OPTIONAL(cdshow_start_capture_encoded, int, (int device, int format, int encoded))
OPTIONAL(cdshow_stop_capture, int, (int device))
OPTIONAL(cdshow_has_first_frame, int, (int device))  // 1 or more: yes, 0: no, negative: error
OPTIONAL(cdshow_frame_width, int, (int device))
OPTIONAL(cdshow_frame_height, int, (int device))
OPTIONAL(cdshow_frame_bytes_per_row, int, (int device))
OPTIONAL(cdshow_frame_data_size, int, (int device))
OPTIONAL(cdshow_frame_pixel_format, int, (int device))
OPTIONAL(cdshow_frame_plane_count, int, (int device))
OPTIONAL(cdshow_frame_plane_offset, int, (int device, int plane))
OPTIONAL(cdshow_frame_plane_stride, int, (int device, int plane))
OPTIONAL(cdshow_grab_frame, int, (int device, void* buffer, int capacity))  // 0 on success
OPTIONAL(cdshow_set_frame_callback, int, (int device, DirectFrameCallbackFn callback, void* context, int enable))
OPTIONAL(cdshow_button_pressed, int, (int device))
OPTIONAL(cdshow_button_timestamp, int, (int device))
OPTIONAL(cdshow_proc_amp_range, int, (int device, int property, int* min, int* max, int* step, int* defaultValue, int* caps))
OPTIONAL(cdshow_proc_amp_get, int, (int device, int property, int* value, int* flags))
OPTIONAL(cdshow_proc_amp_set, int, (int device, int property, int value, int flags))
// clang-format on

#undef OPTIONAL
