// The entry points of the microscope library `libdinolite`, one a line, in the order of the
// binding's members. Included with REQUIRED(name, result, parameters) and OPTIONAL(...) defined;
// both are undefined again at the end. There is no include guard on purpose.
//
// A `bool` result is true for success. The library owns the text of `dl_get_last_error`; the two
// device texts are written into the caller's buffer, whose `capacity` is in bytes.
#ifndef REQUIRED
#error "define REQUIRED(name, result, parameters) and OPTIONAL(name, result, parameters) first"
#endif

// clang-format off
REQUIRED(dl_initialize, void, ())
REQUIRED(dl_devices_count, int, ())
REQUIRED(dl_get_device_unique_id, void, (unsigned int index, void* buffer, unsigned int capacity))
REQUIRED(dl_get_device_name, void, (unsigned int index, void* buffer, unsigned int capacity))
REQUIRED(dl_select_device, bool, (int index))
OPTIONAL(dl_unselect_device, void, ())
REQUIRED(dl_get_selected_device, int, ())                        // negative: none
REQUIRED(dl_device_supports_amr, bool, ())
REQUIRED(dl_get_amr, float, ())                                  // magnification
OPTIONAL(dl_get_fovx, double, (int selector, double amr))        // thousandths of what script code gets
OPTIONAL(dl_get_amr_update_count, std::uint64_t, ())
REQUIRED(dl_device_supports_microtouch, bool, ())
REQUIRED(dl_microtouch_pressed, bool, ())
OPTIONAL(dl_led_mode_count, int, ())
OPTIONAL(dl_led_mode, int, (int index))
OPTIONAL(dl_set_led_state, bool, (int mode))
OPTIONAL(dl_supports_amr, bool, ())                              // bound, not called
OPTIONAL(dl_initialize_selected_device, bool, ())
OPTIONAL(dl_get_last_error, const char*, ())
// clang-format on

#undef REQUIRED
#undef OPTIONAL
