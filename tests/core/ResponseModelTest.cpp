#include <gtest/gtest.h>
#include <pelora/PeloraApiAd.h>

#include <limits>

#include "AdAnswerFixtures.h"
#include "core/PeloraApiAdSchema.h"
#include "support/PeloraYYModel.h"

namespace {

TEST(ResponseModel, EnvelopeWithAndWithoutPayload) {
    auto empty = plyy_modelWithJSON<PeloraRespData>(R"({"code":500,"data":{"ads":[]}})");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->code, 500);
    ASSERT_NE(empty->rData, nullptr);
    ASSERT_TRUE(empty->rData->ads);
    EXPECT_TRUE(empty->rData->ads->empty());

    auto noPayload = plyy_modelWithJSON<PeloraRespData>(R"({"code":0})");
    ASSERT_NE(noPayload, nullptr);
    EXPECT_EQ(noPayload->rData, nullptr);

    EXPECT_EQ(plyy_modelWithJSON<PeloraRespData>(R"([{"code":0}])"), nullptr);
    EXPECT_EQ(plyy_modelWithJSON<PeloraRespData>(R"({"code":0,)"), nullptr);
}

TEST(ResponseModel, TrackingListOnlyThroughAdTrackVO) {
    auto answer = plyy_modelWithJSON<PeloraRespData>(R"({"code":0,"data":{"ads":[{
        "adId":"a1","trackUrls":[{"trackType":1,"urls":["http://t/1"]},
                                 {"trackType":1,"urls":["http://t/2"],"method":"POST"}]}]}})");
    ASSERT_TRUE(answer && answer->rData && answer->rData->ads);
    const auto& ad = answer->rData->ads->front();
    EXPECT_TRUE(ad->trackUrls().empty());
    ASSERT_TRUE(ad->adTrackVO());
    ASSERT_EQ(ad->adTrackVO()->size(), 2u);
    EXPECT_EQ((*ad->adTrackVO())[0]->urls, std::vector<std::string>{"http://t/1"});
    EXPECT_EQ((*ad->adTrackVO())[1]->method, "POST");
    EXPECT_FALSE((*ad->adTrackVO())[0]->clicked_upload);

    // Written back, the ad says what its getter says: no tracking instructions, on both
    // writing routes (the JSON object and the bytes written straight from the records).
    const auto out = plyy_modelToJSONObject(*ad);
    ASSERT_TRUE(out.contains("trackUrls"));
    EXPECT_TRUE(out["trackUrls"].is_array() && out["trackUrls"].empty()) << out.dump();
    const auto bytes = plyy_modelToJSONData(*ad);
    ASSERT_TRUE(bytes);
    EXPECT_NE(bytes->find("\"trackUrls\":[]"), std::string::npos) << *bytes;
    EXPECT_EQ(bytes->find("http://t/1"), std::string::npos);
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
    for (int i = 0; i < 20; ++i)
        extra += ",\"unknown" + std::to_string(i) + "\":" + std::to_string(i);
    for (const std::string& more : {std::string(), extra}) {
        auto answer = plyy_modelWithJSON<PeloraRespData>(
            R"({"code":0,"data":{"ads":[{"adId":"first","title":"T","adId":"second")" + more +
            R"(,"creativeType":1,"creativeType":4,"images":["http://x/i.png"],"images":true}]}})");
        ASSERT_TRUE(answer && answer->rData && answer->rData->ads) << more.size();
        const auto& ad = answer->rData->ads->front();
        EXPECT_EQ(ad->adId, "second") << (more.empty() ? "walked" : "looked up");
        EXPECT_EQ(ad->creativeType, 4) << (more.empty() ? "walked" : "looked up");
        EXPECT_EQ(ad->title, "T");
        // A later duplicate of a type the property ignores leaves it unset, as the dictionary
        // built from this text would.
        EXPECT_FALSE(ad->images) << (more.empty() ? "walked" : "looked up");
    }
}

TEST(ResponseModel, EveryWireKeyAndCoercions) {
    auto answer = plyy_modelWithJSON<PeloraRespData>(R"({"code":"7","data":{
        "reqId":"R","provider":"P","ads":[{
          "adId":"ad","creativeType":"3","interactionType":2.0,"title":"T","desc":"D",
          "source":"S","icons":["i1",5],"images":["m1"],"deeplink":"app://x",
          "clickAdUrl":"https://land","appName":"N","packageName":"com.n","downloadUrl":"https://d",
          "unknownKey":{"ignored":true},
          "videos":[{"videoUrl":"https://v","videoDuration":15,"size":"1024","width":640,
                     "height":360,"coverUrls":["c"],"buttonText":"Go","endImgUrl":"https://e",
                     "endHtml":"<p>end</p>","autoLanding":"yes","prefetch":1,"clickAble":true,
                     "skipSeconds":"5"}, 42]}]}})");
    ASSERT_TRUE(answer && answer->rData && answer->rData->ads);
    EXPECT_EQ(answer->code, 7);
    EXPECT_EQ(answer->rData->reqId, "R");
    EXPECT_EQ(answer->rData->provider, "P");
    const auto& ad = *answer->rData->ads->front();
    EXPECT_EQ(ad.adId, "ad");
    EXPECT_EQ(ad.creativeType, 3);
    EXPECT_EQ(ad.interactionType, 2);
    EXPECT_EQ(ad.icons, std::vector<std::string>{"i1"});
    EXPECT_EQ(ad.images, std::vector<std::string>{"m1"});
    EXPECT_EQ(ad.deeplink, "app://x");
    EXPECT_EQ(ad.downloadUrl, "https://d");
    EXPECT_FALSE(ad.adTrackVO());
    ASSERT_TRUE(ad.videos);
    ASSERT_EQ(ad.videos->size(), 1u);
    const auto& video = *ad.videos->front();
    EXPECT_EQ(video.videoDuration, "15");
    EXPECT_EQ(video.size, 1024);
    EXPECT_EQ(video.coverUrls, std::vector<std::string>{"c"});
    EXPECT_TRUE(video.autoLanding);
    EXPECT_TRUE(video.prefetch);
    EXPECT_TRUE(video.clickAble);
    EXPECT_EQ(video.skipSeconds, 5);
    EXPECT_EQ(video.endHtml, "<p>end</p>");
    // Internal state is not read from the answer.
    EXPECT_EQ(ad.reqSlotW, 0);
    EXPECT_FALSE(ad.exposed_upload);
}

TEST(ResponseModel, UploadMarks) {
    auto ad = PeloraApiAd::init();
    for (int64_t type : {1, 2, 8, 16, 17, 31, 32, 33, 34, 35, 36, 40, 41})
        EXPECT_FALSE(ad->isUploaded(type));
    ad->markUploaded(31);
    ad->markUploaded(31);
    EXPECT_TRUE(ad->isUploaded(31));
    EXPECT_FALSE(ad->isUploaded(32));
    EXPECT_EQ(ad->uploadEventTypes.size(), 2u);
}

TEST(ResponseModel, GeneratedAnswersMapCompletely) {
    for (int count : {1, 5, 20}) {
        const std::string body = pelora::fixtures::adAnswer(count);
        auto answer = plyy_modelWithJSON<PeloraRespData>(body);
        ASSERT_TRUE(answer && answer->rData && answer->rData->ads) << count;
        ASSERT_EQ(answer->rData->ads->size(), static_cast<std::size_t>(count));
        for (const auto& ad : *answer->rData->ads) {
            ASSERT_TRUE(ad->adTrackVO());
            EXPECT_EQ(ad->adTrackVO()->size(), 13u);
            ASSERT_TRUE(ad->videos);
            EXPECT_EQ(ad->videos->size(), 1u);
        }
        // The byte route and the dictionary route agree on the whole answer.
        auto viaDictionary = plyy_modelWithJSON<PeloraRespData>(nlohmann::json::parse(body));
        ASSERT_NE(viaDictionary, nullptr);
        EXPECT_EQ(plyy_modelToJSONObject(*answer), plyy_modelToJSONObject(*viaDictionary));
    }
}

}  // namespace
