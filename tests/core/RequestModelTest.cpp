#include <gtest/gtest.h>
#include <pelora/PeloraSDKManager.h>

#include <set>

#include "TestPlatform.h"
#include "core/PeloraRequest.h"
#include "support/PeloraYYModel.h"

namespace {

using pelora::platform::InterfaceOrientation::kLandscapeLeft;
using pelora::platform::InterfaceOrientation::kLandscapeRight;
using pelora::platform::InterfaceOrientation::kPortrait;
using pelora::platform::InterfaceOrientation::kPortraitUpsideDown;
using pelora::platform::InterfaceOrientation::kUnknown;

class RequestModelTest : public ::testing::Test {
  protected:
    void SetUp() override { PeloraSDKManager::setAppID(std::nullopt); }
    void TearDown() override { PeloraSDKManager::setAppID(std::nullopt); }
    pelora::testing::TestPlatform platform;
};

TEST_F(RequestModelTest, QueryValuesAndFormats) {
    platform.device->randomUUIDs = true;
    PeloraSDKManager::setAppID(std::string("app-42"));
    auto a = PeloraUrlQuery::init();
    auto b = PeloraUrlQuery::init();  // same millisecond on the manual clock
    ASSERT_TRUE(a->reqId && b->reqId);
    EXPECT_EQ(a->reqId->size(), 32u);
    EXPECT_EQ(a->reqId->find_first_not_of("0123456789ABCDEF"), std::string::npos) << *a->reqId;
    EXPECT_NE(*a->reqId, *b->reqId);
    EXPECT_EQ(a->reqTs, b->reqTs);
    EXPECT_EQ(a->reqTs, static_cast<int64_t>(platform.clock->wallSeconds() * 1000.0));
    EXPECT_EQ(a->sdkV, "1.0");
    EXPECT_EQ(a->sdkVc, 1);
    EXPECT_EQ(a->appId, "app-42");
    EXPECT_EQ(a->appV, "2.5.0");
    EXPECT_EQ(a->appVc, 123);  // build 1.2.3
    EXPECT_EQ(a->os, "iOS");
    EXPECT_EQ(a->udid, pelora::testing::FakeDeviceInfo::kVendorId);
    EXPECT_EQ(a->sdkN, "PeloraSDK");
}

TEST_F(RequestModelTest, BuildVersionToInteger) {
    struct Case {
        std::optional<std::string> build;
        int64_t expected;
    };
    const Case cases[] = {{"10.0.1", 1001}, {"beta", 0}, {std::nullopt, 0}, {"7", 7}};
    for (const auto& c : cases) {
        if (c.build) {
            platform.device->info[pelora::platform::kCFBundleVersion] = *c.build;
        } else {
            platform.device->info.erase(pelora::platform::kCFBundleVersion);
        }
        EXPECT_EQ(PeloraUrlQuery::init()->appVc, c.expected) << c.build.value_or("(absent)");
    }
}

TEST_F(RequestModelTest, AbsentAppIdIsLeftOut) {
    auto query = plyy_modelToJSONObject(*PeloraUrlQuery::init());
    EXPECT_FALSE(query.contains("appId"));
    EXPECT_EQ(query.size(), 9u);
    auto body = plyy_modelToJSONObject(*PeloraReqBody::init());
    EXPECT_FALSE(body["appInfo"].contains("appId"));

    PeloraSDKManager::setAppID(std::string("later"));
    EXPECT_EQ(plyy_modelToJSONObject(*PeloraUrlQuery::init())["appId"], "later");
    EXPECT_EQ(plyy_modelToJSONObject(*PeloraReqBody::init())["appInfo"]["appId"], "later");
}

TEST_F(RequestModelTest, DeviceScreenOrientationAndCarrier) {
    auto device = PeloraReqDeviceObject::init();
    EXPECT_EQ(device->screenWidth, 750);
    EXPECT_EQ(device->screenHeight, 1334);
    EXPECT_EQ(device->orientation, 1);
    EXPECT_EQ(device->imsi, "(null)(null)");
    EXPECT_EQ(device->deviceId, pelora::testing::FakeDeviceInfo::kZeroId);
    EXPECT_EQ(device->osVersion, "14.2");
    EXPECT_EQ(device->model, "iPhone");
    EXPECT_EQ(device->vendor, "Apple");
    EXPECT_EQ(device->os, "iOS");

    // Landscape: the same pixels, shorter side first.
    platform.device->bounds = pelora::platform::makeRect(0, 0, 667, 375);
    platform.device->scale = 3;
    platform.device->countryCode = "460";
    platform.device->networkCode = "01";
    device->configInit();
    EXPECT_EQ(device->screenWidth, 1125);
    EXPECT_EQ(device->screenHeight, 2001);
    EXPECT_EQ(device->imsi, "46001");

    const std::pair<int64_t, int64_t> orientations[] = {{kUnknown, 0},
                                                        {kPortrait, 1},
                                                        {kPortraitUpsideDown, 1},
                                                        {kLandscapeLeft, 2},
                                                        {kLandscapeRight, 2},
                                                        {5, 0},
                                                        {-1, 0}};
    for (auto [status, expected] : orientations) {
        platform.device->orientation = status;
        device->configInit();
        EXPECT_EQ(device->orientation, expected) << status;
    }
}

TEST_F(RequestModelTest, BodyKeysAndValueTypes) {
    auto body = PeloraReqBody::init();
    body->slot->slotId = "slot-1";
    body->slot->width = 320;
    body->slot->height = 50;
    auto bytes = plyy_modelToJSONData(*body);
    ASSERT_TRUE(bytes);
    const auto json = nlohmann::json::parse(*bytes);

    std::set<std::string> keys;
    for (auto it = json.begin(); it != json.end(); ++it) keys.insert(it.key());
    EXPECT_EQ(keys, (std::set<std::string>{"device", "slot", "appInfo"}));

    const auto& slot = json["slot"];
    EXPECT_EQ(slot, nlohmann::json::parse(R"({"slotId":"slot-1","adType":0,"position":0,
        "acceptedCreativeTypes":2,"acceptedInteractionType":1,"width":320,"height":50})"));

    const auto& app = json["appInfo"];
    EXPECT_TRUE(app["lng"].is_number_float());
    EXPECT_TRUE(app["lat"].is_number_float());
    EXPECT_TRUE(app["hasD"].is_boolean());
    EXPECT_TRUE(app["cost"].is_number_integer());
    EXPECT_FALSE(app.contains("gpsType"));

    const auto& device = json["device"];
    for (const char* k : {"screenWidth", "screenHeight", "orientation", "dpi"})
        EXPECT_TRUE(device[k].is_number_integer()) << k;
    for (const char* k : {"deviceId", "os", "osVersion", "vendor", "model", "imsi"})
        EXPECT_TRUE(device[k].is_string()) << k;
    for (const char* k : {"imei", "language", "mac", "userAgent", "extra", "oaid"})
        EXPECT_FALSE(device.contains(k)) << k;
    if (device.contains("net")) {
        const std::set<std::string> statuses{"wifi", "4g", "3g", "2g", "未知", "无法连接"};
        EXPECT_TRUE(statuses.count(device["net"].get<std::string>())) << device["net"];
    }
}

}  // namespace
