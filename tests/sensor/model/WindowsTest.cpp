#include "TestSupport.h"
#include "Windows.h"

namespace {

const ZTSWwn sHba{{0x10, 0, 0, 0, 0, 0, 0, 1}};
const ZTSWwn sArray{{0x50, 0, 0, 0, 0, 0, 0, 1}};

std::string refusalOf(const std::string& acrText) {
    try {
        parseWindow(acrText);
        return "";
    } catch (const std::runtime_error& lrError) {
        return lrError.what();
    }
}

TEST(Windows, AreReadAsTheyAreWritten) {
    const ZTSWindow lWindow =
        parseWindow("  \"my array/A 1\" 2026-11-21T20:00:00Z \"2026-11-21 23:00 UTC\"  new  \"firm\"ware ");
    EXPECT_EQ(lWindow.mWhat, "my array/A 1");
    EXPECT_EQ(lWindow.mFirst, 1795291200 * ZTSecond);
    EXPECT_EQ(lWindow.mLast - lWindow.mFirst, 3 * 3600 * ZTSecond);
    EXPECT_EQ(lWindow.mText, "new  \"firm\"ware");
    EXPECT_EQ(parseWindow("fabric=\"a b\" @1 @2").mWhat, "fabric=a b");
    for (const char* const lpBad :
         {"", "host", "host @1", "\"\" @1 @2", "fabric= @1 @2", "host today tomorrow", "host -2h @2",
          "host 08:00 09:00", "host @2 @2", "host @3 @2", "host @1 \"@2", "host @1 monday", "ho\x1bst @1 @2",
          "host @1 @2 a\tb"}) {
        EXPECT_NE(refusalOf(lpBad), "") << lpBad;
        EXPECT_EQ(countIn(refusalOf(lpBad), "\n"), 0U) << lpBad;
    }
    const std::string lLong(201, 'x');
    EXPECT_NE(refusalOf("host @1 @2 " + lLong), "");
    EXPECT_NE(refusalOf(lLong + " @1 @2"), "");
}

TEST(Windows, MarkWhatTheyName) {
    const ZTPortLabels lLabels{{sHba, {"hba0", "", "", "left", ""}}, {sArray, {"a1-A0", "a1", "A", "", ""}}};
    const struct {
        const char* mpWhat;
        bool mOfHba;
        bool mOfArray;
        bool mOfFabric;  // something without ports, on the fabric "left"
    } lRows[] = {{"host", true, true, true},
                 {"hba0", true, false, false},
                 {"a1-A0", false, true, false},
                 {"a1", false, true, false},
                 {"a1/A", false, true, false},
                 {"a1/B", false, false, false},
                 {"0x5000000000000001", false, true, false},
                 {"10:00:00:00:00:00:00:01", true, false, false},
                 {"fabric=left", false, false, true},
                 {"fabric=right", false, false, false},
                 {"left", false, false, false}};
    for (const auto& lrRow : lRows) {
        const std::vector<ZTSWindow> lWindows{{lrRow.mpWhat, 100, 200, ""}};
        const auto lIsIn = [&](const ZTSWwn& acrInitiator, const ZTSWwn& acrRemote, const char* apFabric) {
            return findWindow(lWindows, lLabels, 150, 160, acrInitiator, acrRemote, apFabric) != nullptr;
        };
        EXPECT_EQ(lIsIn(sHba, {}, ""), lrRow.mOfHba) << lrRow.mpWhat;
        EXPECT_EQ(lIsIn({}, sArray, ""), lrRow.mOfArray) << lrRow.mpWhat;
        EXPECT_EQ(lIsIn({}, {}, "left"), lrRow.mOfFabric) << lrRow.mpWhat;
    }
    // What touches it is in it; of several the first counts.
    const std::vector<ZTSWindow> lTwo{{"host", 100, 200, "one"}, {"host", 150, 300, "two"}};
    const auto lTextAt = [&](ZTNanoseconds aFirst, ZTNanoseconds aLast) {
        const ZTSWindow* const lpWindow = findWindow(lTwo, {}, aFirst, aLast, {}, {}, "");
        return lpWindow != nullptr ? lpWindow->mText : "";
    };
    EXPECT_EQ(lTextAt(0, 99), "");
    EXPECT_EQ(lTextAt(0, 100), "one");
    EXPECT_EQ(lTextAt(200, 500), "one");
    EXPECT_EQ(lTextAt(201, 500), "two");
    EXPECT_EQ(lTextAt(301, 500), "");
}

}  // namespace
