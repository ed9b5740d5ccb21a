#include "camera/backend/device_discovery.h"

#include <cstring>
#include <string>
#include <vector>

#include "unit/support/fake_camera.h"

namespace ostrel_native {
namespace {

using DeviceDiscovery = FakeCameraTest;
using Strings = std::vector<std::string>;

// Fills the whole capacity with `byte`, without a terminator.
template <typename Character>
void Fill(Character* buffer, int capacity, char byte) {
  std::memset(buffer, byte, static_cast<std::size_t>(capacity));
}

void WriteText(void* buffer, int capacity, const std::string& text) {
  ASSERT_LT(text.size(), static_cast<std::size_t>(capacity));
  std::memcpy(buffer, text.c_str(), text.size() + 1);
}

TEST_F(DeviceDiscovery, WithoutABackendNothingIsThere) {
  EXPECT_EQ(DevicesCount(), 0);
  EXPECT_EQ(DeviceUniqueId(0), "");
  EXPECT_EQ(DeviceModelId(0), "");
  EXPECT_EQ(DeviceName(0), "");
  EXPECT_EQ(DeviceType(0), "");
  EXPECT_EQ(DeviceFormatsCount(0), 0);
}

TEST_F(DeviceDiscovery, WithoutEntriesNothingIsThere) {
  for (const BackendKind kind :
       {BackendKind::Linux, BackendKind::DirectShow, BackendKind::AvFoundation}) {
    Use(kind);
    EXPECT_EQ(DevicesCount(), 0);
    EXPECT_EQ(DeviceUniqueId(0), "");
    EXPECT_EQ(DeviceModelId(0), "");
    EXPECT_EQ(DeviceName(0), "");
    EXPECT_EQ(DeviceType(0), "");
    EXPECT_EQ(DeviceFormatsCount(0), 0);
  }
}

TEST_F(DeviceDiscovery, TheCountIsThatOfTheCurrentKind) {
  FAKE_NUMBER(cnokhwa_devices_count, 1);
  FAKE_NUMBER(cdshow_devices_count, 2);
  FAKE_NUMBER(avf_devices_count, 3);
  Use(BackendKind::Linux);
  EXPECT_EQ(DevicesCount(), 1);
  Use(BackendKind::DirectShow);
  EXPECT_EQ(DevicesCount(), 2);
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(DevicesCount(), 3);
  Use(BackendKind::None);
  EXPECT_EQ(DevicesCount(), 0);
}

TEST_F(DeviceDiscovery, ANegativeCountIsPassedOn) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_devices_count, -5);
  EXPECT_EQ(DevicesCount(), -5);
}

TEST_F(DeviceDiscovery, LinuxTextsIgnoreTheResultAndPassTheDeviceUnchecked) {
  Use(BackendKind::Linux);
  FAKE_ENTRY(cnokhwa_device_unique_id, [](int, void* buffer, int capacity) {
    WriteText(buffer, capacity, "id");
    return -1;
  });
  FAKE_ENTRY(cnokhwa_device_model_id, [](int, void* buffer, int capacity) {
    WriteText(buffer, capacity, "model");
    return 7;
  });
  FAKE_ENTRY(cnokhwa_device_name, [](int, void* buffer, int capacity) {
    WriteText(buffer, capacity, "name");
    return 0;
  });
  EXPECT_EQ(DeviceUniqueId(-1), "id");
  EXPECT_EQ(DeviceModelId(2147483647), "model");
  EXPECT_EQ(DeviceName(3), "name");
  EXPECT_EQ(DeviceType(0), "");
  EXPECT_EQ(Calls(), (Strings{"cnokhwa_device_unique_id(-1,ptr,1024)",
                              "cnokhwa_device_model_id(2147483647,ptr,1024)",
                              "cnokhwa_device_name(3,ptr,1024)"}));
}

TEST_F(DeviceDiscovery, TheOtherKindsHaveTextsOfTheirOwn) {
  const auto write = [](const char* text) {
    return [text](int, void* buffer, int capacity) { WriteText(buffer, capacity, text); };
  };
  FAKE_ENTRY(cdshow_device_unique_id, write("d id"));
  FAKE_ENTRY(cdshow_device_model_id, write("d model"));
  FAKE_ENTRY(cdshow_device_name, write("d name"));
  FAKE_ENTRY(avf_device_unique_id, write("a id"));
  FAKE_ENTRY(avf_device_model_id, write("a model"));
  FAKE_ENTRY(avf_device_name, write("a name"));
  FAKE_ENTRY(avf_device_type, write("a type"));
  Use(BackendKind::DirectShow);
  EXPECT_EQ(DeviceUniqueId(0), "d id");
  EXPECT_EQ(DeviceModelId(0), "d model");
  EXPECT_EQ(DeviceName(0), "d name");
  EXPECT_EQ(DeviceType(0), "");
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(DeviceUniqueId(0), "a id");
  EXPECT_EQ(DeviceModelId(0), "a model");
  EXPECT_EQ(DeviceName(0), "a name");
  EXPECT_EQ(DeviceType(0), "a type");
  EXPECT_EQ(ReadAvfDeviceString(0, g_camera.avf_device_name), "a name");
  EXPECT_EQ(ReadAvfDeviceString(0, nullptr), "");
}

TEST_F(DeviceDiscovery, ATextWithoutAnEndIsCutAt1023Bytes) {
  Use(BackendKind::Linux);
  FAKE_ENTRY(cnokhwa_device_name, [](int, void* buffer, int capacity) {
    Fill(buffer, capacity, 'n');
    return 0;
  });
  EXPECT_EQ(DeviceName(0), std::string(1023, 'n'));
  Use(BackendKind::DirectShow);
  FAKE_ENTRY(cdshow_device_name,
             [](int, void* buffer, int capacity) { Fill(buffer, capacity, 'd'); });
  EXPECT_EQ(DeviceName(0), std::string(1023, 'd'));
  Use(BackendKind::AvFoundation);
  FAKE_ENTRY(avf_device_type, [](int, void* buffer, int capacity) { Fill(buffer, capacity, 'a'); });
  EXPECT_EQ(DeviceType(0), std::string(1023, 'a'));
}

TEST_F(DeviceDiscovery, ATextMayBeCutWithinACharacter) {
  Use(BackendKind::Linux);
  FAKE_ENTRY(cnokhwa_device_name, [](int, void* buffer, int capacity) {
    for (int i = 0; i < capacity; ++i) {
      static_cast<char*>(buffer)[i] = i % 2 == 0 ? '\xC3' : '\xA9';
    }
    return 0;
  });
  const std::string name = DeviceName(0);
  EXPECT_EQ(name.size(), 1023U);
  EXPECT_EQ(name.back(), '\xC3');
}

TEST_F(DeviceDiscovery, AnEntryThatWritesNothingGivesAnEmptyText) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_device_name, -1);
  FAKE_ENTRY(cnokhwa_device_format_type, [](int, int, char*, int) {});
  EXPECT_EQ(DeviceName(0), "");
  EXPECT_EQ(DeviceFormatAt(0, 0).type, "");
}

TEST_F(DeviceDiscovery, AFormatsCountThatIsNoCountIsZero) {
  Use(BackendKind::Linux);
  FAKE_NUMBER(cnokhwa_device_formats_count, -3);
  EXPECT_EQ(DeviceFormatsCount(0), 0);
  FAKE_NUMBER(cnokhwa_device_formats_count, 0);
  EXPECT_EQ(DeviceFormatsCount(0), 0);
  FAKE_NUMBER(cnokhwa_device_formats_count, kMaxListedFormats);
  EXPECT_EQ(DeviceFormatsCount(0), 1048576);
  FAKE_NUMBER(cnokhwa_device_formats_count, kMaxListedFormats + 1);
  EXPECT_EQ(DeviceFormatsCount(0), 0);
  FAKE_NUMBER(cnokhwa_device_formats_count, 2147483647);
  EXPECT_EQ(DeviceFormatsCount(0), 0);
}

TEST_F(DeviceDiscovery, TheFormatsCountIsThatOfTheCurrentKind) {
  FAKE_NUMBER(cnokhwa_device_formats_count, 1);
  FAKE_NUMBER(cdshow_formats_count, 2);
  FAKE_NUMBER(avf_formats_count, 3);
  Use(BackendKind::Linux);
  EXPECT_EQ(DeviceFormatsCount(-1), 1);
  Use(BackendKind::DirectShow);
  EXPECT_EQ(DeviceFormatsCount(0), 2);
  Use(BackendKind::AvFoundation);
  EXPECT_EQ(DeviceFormatsCount(0), 3);
  EXPECT_EQ(Calls(), (Strings{"cnokhwa_device_formats_count(-1)", "cdshow_formats_count(0)",
                              "avf_formats_count(0)"}));
}

TEST_F(DeviceDiscovery, ALinuxFormatIsAskedKeyByKeyInOrder) {
  Use(BackendKind::Linux);
  FAKE_ENTRY(cnokhwa_device_format_width, [](int, int format) { return 100 * format; });
  FAKE_NUMBER(cnokhwa_device_format_height, -480);
  FAKE_NUMBER(cnokhwa_device_format_frame_rate, 0);
  FAKE_ENTRY(cnokhwa_device_format_type,
             [](int, int, char* buffer, int capacity) { WriteText(buffer, capacity, "MJPG"); });
  const DeviceFormat format = DeviceFormatAt(2, 5);
  EXPECT_EQ(format.width, 500);
  EXPECT_EQ(format.height, -480);
  EXPECT_EQ(format.frameRate, 0);
  EXPECT_EQ(format.type, "MJPG");
  EXPECT_EQ(Calls(),
            (Strings{"cnokhwa_device_format_width(2,5)", "cnokhwa_device_format_height(2,5)",
                     "cnokhwa_device_format_frame_rate(2,5)",
                     "cnokhwa_device_format_type(2,5,ptr,256)"}));
}

TEST_F(DeviceDiscovery, AFormatTypeWithoutAnEndIsCutAt255Bytes) {
  Use(BackendKind::Linux);
  FAKE_ENTRY(cnokhwa_device_format_type,
             [](int, int, char* buffer, int capacity) { Fill(buffer, capacity, 't'); });
  EXPECT_EQ(DeviceFormatAt(0, 0).type, std::string(255, 't'));
}

TEST_F(DeviceDiscovery, ADirectShowFormatWithoutEntriesIsEmpty) {
  Use(BackendKind::DirectShow);
  const DeviceFormat empty = DeviceFormatAt(0, 0);
  EXPECT_EQ(empty.width, 0);
  EXPECT_EQ(empty.height, 0);
  EXPECT_EQ(empty.frameRate, 0);
  EXPECT_EQ(empty.type, "");
  FAKE_NUMBER(cdshow_format_width, 1280);
  FAKE_NUMBER(cdshow_format_height, 720);
  FAKE_NUMBER(cdshow_format_frame_rate, 60);
  FAKE_ENTRY(cdshow_format_type,
             [](int, int, char* buffer, int capacity) { WriteText(buffer, capacity, "NV12"); });
  const DeviceFormat format = DeviceFormatAt(1, 2);
  EXPECT_EQ(format.width, 1280);
  EXPECT_EQ(format.height, 720);
  EXPECT_EQ(format.frameRate, 60);
  EXPECT_EQ(format.type, "NV12");
  EXPECT_EQ(Calls().back(), "cdshow_format_type(1,2,ptr,256)");
}

TEST_F(DeviceDiscovery, AnAvFoundationFormatTakesFourDescriptors) {
  Use(BackendKind::AvFoundation);
  FAKE_ENTRY(avf_format_descriptor, [](int, int, char* buffer, int capacity) {
    WriteText(buffer, capacity, "640x480; yuy2; 29.97 fps");
  });
  const DeviceFormat format = DeviceFormatAt(1, 4);
  EXPECT_EQ(format.width, 640);
  EXPECT_EQ(format.height, 480);
  EXPECT_EQ(format.frameRate, 29);
  EXPECT_EQ(format.type, "yuy2");
  EXPECT_EQ(Calls(), Strings(4, "avf_format_descriptor(1,4,ptr,512)"));
}

TEST_F(DeviceDiscovery, AnAvFoundationFormatWithoutADescriptorIsTheDefault) {
  Use(BackendKind::AvFoundation);
  const DeviceFormat format = DeviceFormatAt(0, 0);
  EXPECT_EQ(format.width, 0);
  EXPECT_EQ(format.height, 0);
  EXPECT_EQ(format.frameRate, 30);
  EXPECT_EQ(format.type, "");
}

TEST_F(DeviceDiscovery, ADescriptorWithoutAnEndIsCutAt511Bytes) {
  Use(BackendKind::AvFoundation);
  FAKE_ENTRY(avf_format_descriptor,
             [](int, int, char* buffer, int capacity) { Fill(buffer, capacity, 'x'); });
  EXPECT_EQ(ParseAvfFormat(0, 0).type, std::string(511, 'x'));
}

TEST_F(DeviceDiscovery, AFormatWithoutABackendIsEmpty) {
  const DeviceFormat format = DeviceFormatAt(0, 0);
  EXPECT_EQ(format.width, 0);
  EXPECT_EQ(format.frameRate, 0);
  EXPECT_EQ(format.type, "");
}

}  // namespace
}  // namespace ostrel_native
