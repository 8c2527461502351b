// The records of an exchange. The request's values that depend on the device (the build number
// as an integer, the screen in pixels whichever way it is held, the orientation, the carrier)
// and how query text is escaped; the answer's records: every wire key with its coercions, what
// the reader takes and refuses, duplicate keys. The whole request as the server receives it,
// and what each answer becomes for the caller, are in TransportTest.

#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "core/PeloraApiAdSchema.h"
#include "core/PeloraNetwork.h"
#include "core/PeloraRequest.h"
#include "pelora/testing/TestEnvironment.h"
#include "support/PeloraYYModel.h"

namespace {

using nlohmann::json;

// The build number as an integer; the screen in pixels, shorter side first; the orientation and
// the carrier.
TEST(RequestModel, BuildVersionScreenPixelsOrientationAndCarrier) {
    pelora::testing::TestEnvironment platform;
    for (auto [build, expected] :
         {std::pair("1.2.3", 123), {"10.0.1", 1001}, {"beta", 0}, {"7", 7}}) {
        platform.device->info[pelora::platform::kCFBundleVersion] = build;
        EXPECT_EQ(PeloraUrlQuery::init()->appVc, expected) << build;
    }
    platform.device->info.erase(pelora::platform::kCFBundleVersion);
    EXPECT_EQ(PeloraUrlQuery::init()->appVc, 0);

    platform.device->bounds = pelora::platform::makeRect(0, 0, 667, 375);
    platform.device->scale = 3;
    platform.device->countryCode = "460";
    platform.device->networkCode = "01";
    auto device = PeloraReqDeviceObject::init();
    EXPECT_EQ(device->screenWidth, 1125);
    EXPECT_EQ(device->screenHeight, 2001);
    EXPECT_EQ(device->imsi, "46001");

    // Status bar orientations -1 to 5: unknown (0), portrait (1, 2: 1), landscape (3, 4: 2).
    for (int64_t status = -1; status <= 5; ++status) {
        platform.device->orientation = status;
        device->configInit();
        EXPECT_EQ(device->orientation, (std::array{0, 0, 1, 1, 2, 2, 0}[status + 1])) << status;
    }
}

TEST(PercentEscaping, OnlyUnreservedCharactersAndPathMarksStayAndBatchesNeverSplitACharacter) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"AZaz09-._~/?", "AZaz09-._~/?"},
        {" &=:%", "%20%26%3D%3A%25"},
        {"#[]@!$'()*+,;", "%23%5B%5D%40%21%24%27%28%29%2A%2B%2C%3B"},
        {"\u00e9", "%C3%A9"},
        {std::string("a\0b", 3), "a%00b"},
        {"\xff", "%FF"},
        // An emoji on UTF-16 units 49 and 50, across the first of three batches (where a batch
        // may end is ToolTest's).
        {std::string(49, 'a') + "\xF0\x9F\x98\x80" + std::string(70, 'b'),
         std::string(49, 'a') + "%F0%9F%98%80" + std::string(70, 'b')},
    };
    for (const auto& [text, escaped] : cases) {
        EXPECT_EQ(pl_AFPercentEscapedStringFromString(text), escaped) << text;
    }
}

// Every key the server sends, read with its property's coercions and written back; the
// tracking instructions only through adTrackVO(), so nothing else can fire them.
TEST(ResponseModel, EveryWireKeyAndCoercions) {
    auto answer = plyy_modelWithJSON<PeloraRespData>(R"({"code":"7","data":{
        "reqId":"R","provider":"P","ads":[{
          "adId":"ad","creativeType":"3","interactionType":2.0,"title":"T","desc":"D",
          "source":"S","icons":["i1",5],"images":["m1"],"deeplink":"app://x",
          "clickAdUrl":"https://land","appName":"N","packageName":"com.n","downloadUrl":"https://d",
          "unknownKey":{"ignored":true},"reqSlotW":5,"exposed_upload":true,"uploadEventTypes":[1],
          "trackUrls":[{"trackType":1,"urls":["http://t/1"]},
                       {"trackType":2,"urls":["http://t/2"],"method":"POST"}],
          "videos":[{"videoUrl":"https://v","videoDuration":15,"size":"1024","width":640,
                     "height":360,"coverUrls":["c"],"buttonText":"Go","endImgUrl":"https://e",
                     "endHtml":"<p>end</p>","autoLanding":"yes","prefetch":1,"clickAble":true,
                     "skipSeconds":"5"}, 42]}]}})");
    ASSERT_TRUE(answer && answer->rData && answer->rData->ads);
    const auto& ad = *answer->rData->ads->front();
    const json written = json::parse(R"({
        "adId":"ad","creativeType":3,"interactionType":2,"title":"T","desc":"D","source":"S",
        "icons":["i1"],"images":["m1"],"deeplink":"app://x","clickAdUrl":"https://land",
        "appName":"N","packageName":"com.n","downloadUrl":"https://d","trackUrls":[],
        "videos":[{"videoUrl":"https://v","videoDuration":"15","size":1024,"width":640,
                   "height":360,"coverUrls":["c"],"buttonText":"Go","endImgUrl":"https://e",
                   "endHtml":"<p>end</p>","autoLanding":true,"prefetch":true,"clickAble":true,
                   "skipSeconds":5}]})");
    EXPECT_EQ(
        plyy_modelToJSONObject(*answer),
        json({{"code", 7}, {"data", {{"reqId", "R"}, {"provider", "P"}, {"ads", {written}}}}}));
    EXPECT_EQ(json::parse(plyy_modelToJSONData(ad).value_or("")), written);
    // The transport's and the tracker's marks are never read from the answer.
    EXPECT_EQ(ad.reqSlotW, 0);
    EXPECT_FALSE(ad.exposed_upload);
    EXPECT_TRUE(ad.uploadEventTypes.empty());
    EXPECT_TRUE(ad.trackUrls().empty());
    ASSERT_TRUE(ad.adTrackVO() && ad.adTrackVO()->size() == 2u);
    EXPECT_EQ((*ad.adTrackVO())[1]->urls, std::vector<std::string>{"http://t/2"});
    EXPECT_EQ((*ad.adTrackVO())[1]->method, "POST");
}

// What the platform's JSON reader takes is taken: integers beyond 64 bits (read as floating
// point) and a byte-order mark before the text. Malformed numbers and nesting past the limit
// are still refused.
TEST(ResponseModel, BigIntegersAndAByteOrderMarkAreAcceptedMalformedTextIsNot) {
    auto big = plyy_modelWithJSON<PeloraRespData>(
        R"({"code":0,"ignored":123456789012345678901234567890,"data":{"ads":[{"adId":"a",)"
        R"("creativeType":99999999999999999999999}]}})");
    ASSERT_TRUE(big && big->rData && big->rData->ads);
    EXPECT_EQ(big->rData->ads->front()->adId, "a");
    EXPECT_EQ(big->rData->ads->front()->creativeType, std::numeric_limits<int64_t>::max());

    auto bom = plyy_modelWithJSON<PeloraRespData>("\xEF\xBB\xBF{\"code\":3}");
    ASSERT_TRUE(bom);
    EXPECT_EQ(bom->code, 3);

    std::string why;
    for (const std::string& bad :
         {std::string(R"({"code":01})"), std::string(R"({"code":1e999999})"),
          std::string(R"({"code":0,"n":1234567890123456789012345,"x":)") + std::string(200, '[') +
              std::string(200, ']') + "}",
          std::string("\xEF\xBB\xBF\xEF\xBB\xBF{}")}) {
        EXPECT_EQ(plyy_modelWithJSON<PeloraRespData>(bad, &why), nullptr) << bad.substr(0, 40);
    }
}

// Of duplicate keys the last wins, whichever way the object is mapped: small objects are
// walked entry by entry, objects with more keys than the record maps are looked up by key.
// An earlier duplicate is never seen, even when the last one is of a type that is ignored.
TEST(ResponseModel, TheLastOfDuplicateKeysWinsOnBothRoutes) {
    std::string extra;
    for (int i = 0; i < 20; ++i) extra += ",\"unknown" + std::to_string(i) + "\":0";
    for (const std::string& more : {std::string(), extra}) {
        SCOPED_TRACE(more.empty() ? "walked" : "looked up");
        auto answer = plyy_modelWithJSON<PeloraRespData>(
            R"({"code":0,"data":{"ads":[{"adId":"first","title":"T","adId":"second")" + more +
            R"(,"creativeType":1,"creativeType":4,"images":["http://x/i.png"],"images":true}]}})");
        ASSERT_TRUE(answer && answer->rData && answer->rData->ads);
        const auto& ad = answer->rData->ads->front();
        EXPECT_EQ(ad->adId, "second");
        EXPECT_EQ(ad->creativeType, 4);
        EXPECT_EQ(ad->title, "T");
        EXPECT_FALSE(ad->images) << "a later duplicate of an ignored type leaves it unset";
    }
}

}  // namespace
