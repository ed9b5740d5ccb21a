// The entry points of the microscope library `libostrel.so`, one a line, in the order of the
// table's members. Included with REQUIRED(name, result, parameters) and OPTIONAL(...) defined; both
// are undefined again at the end. There is no include guard on purpose.
//
// An `int` result is non-zero for success unless its line says otherwise. The library owns all
// texts.
#ifndef REQUIRED
#error "define REQUIRED(name, result, parameters) and OPTIONAL(name, result, parameters) first"
#endif

// clang-format off
REQUIRED(Init, int, ())
REQUIRED(Destroy, void, ())
REQUIRED(GetDevicesCount, int, ())                               // a count
REQUIRED(GetDeviceUniqueId, const wchar_t*, (int index))
REQUIRED(GetDeviceFriendlyName, const wchar_t*, (int index))
REQUIRED(SelectDeviceNumber, int, (unsigned int index))
REQUIRED(GetScopeStatus, int, ())                                // a code of the library's own
REQUIRED(GetPixelSizeMicrons, float, ())                         // micrometres a pixel
OPTIONAL(GetApiVersion, unsigned int, ())
OPTIONAL(GetPixelSizeInfo, int, (float* micronsPerPixel, std::uint16_t* width, std::uint16_t* height))
OPTIONAL(GetLensGroupInfo, int, (std::uint16_t* lensDriver, std::uint8_t* lensGroup))
REQUIRED(IsCapturePressed, int, ())                              // non-zero: the button is down
OPTIONAL(GetVersionInfo, int, (std::uint16_t* productId, std::uint8_t* hardwareMajor, std::uint8_t* hardwareMinor, std::uint16_t* softwareMajor, std::uint8_t* softwareMinor, std::uint8_t* softwarePatch))
OPTIONAL(GetProtocolVersionInfo, int, (std::uint16_t* major, std::uint8_t* minor, std::uint8_t* patch))
OPTIONAL(TriggerAutoFocus, int, ())
OPTIONAL(GetFocusPosition, int, (std::uint16_t* position))
OPTIONAL(SetFocusPosition, int, (std::uint16_t position))
OPTIONAL(FocusNearStep, int, ())
OPTIONAL(FocusFarStep, int, ())
OPTIONAL(GetLedState, int, (std::int32_t* state))
OPTIONAL(SetLedState, int, (bool on))
OPTIONAL(GetLastErrorString, const char*, ())
// clang-format on

#undef REQUIRED
#undef OPTIONAL
