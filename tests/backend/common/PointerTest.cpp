#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Pointer.h"

namespace {

using Ids = std::vector<int>;
Ids sDestroyed;

struct Base {
    virtual ~Base() = default;
};
struct Element : Base {
    explicit Element(int aId = sNextId++) : mId(aId) {}
    ~Element() override { sDestroyed.push_back(mId); }
    static inline int sNextId = 1;
    int mId;
};
struct Node {
    ZTCPointer<Node> mNext;
    Element mElement;
};

using Pointer = ZTCPointer<int>;
constexpr auto sArray = ZTPST_Array;
constexpr auto sNoSize = ZTEPointerSizeType{};

Pointer filled(ZTEPointerSizeType aSizeType, ZTEPointerMemoryType aMemoryType = ZTPMT_New) {
    return {new int, aSizeType, aMemoryType};
}

const struct {
    const char* mpPlace;  // the line and the function, as a regular expression like the text
    const char* mpText;
    void (*mpUse)(Pointer& arEmpty);
} sMisuses[] = {
    {"297 ZTCPointer", "0 != acrCopy\\.mPointer", [](Pointer& arEmpty) { Pointer{std::as_const(arEmpty)}; }},
    {"337 operator=", "0 != acrCopy\\.mPointer", [](Pointer& arEmpty) { Pointer() = arEmpty; }},
    {"337 operator=", "0 != acrCopy\\.mPointer", [](Pointer& arEmpty) { arEmpty = std::as_const(arEmpty); }},
    {"395 operator\\*", "0 != mPointer", [](Pointer& arEmpty) { *arEmpty = 1; }},
    {"406 operator\\*", "false", [](Pointer&) { *filled(sNoSize) = 1; }},
    {"443 operator->", "0 != mPointer", [](Pointer& arEmpty) { std::as_const(arEmpty).operator->(); }},
    {"446 operator->", "ZTPST_Individual == mSizeType",
     [](Pointer&) { std::as_const(*new Pointer(filled(sArray))).operator->(); }},
    {"460 operator->", "0 != mPointer", [](Pointer& arEmpty) { arEmpty.operator->(); }},
    {"463 operator->", "ZTPST_Individual == mSizeType", [](Pointer&) { filled(sArray).operator->(); }},
    {"503 _releaseMemory", "false", [](Pointer&) { filled(sNoSize); }},
    {"511 _releaseMemory", "false", [](Pointer&) { filled(sArray, ZTEPointerMemoryType{}); }},
    {"614 get", "0 != mPointer", [](Pointer& arEmpty) { arEmpty.get(); }},
};

}  // namespace

TEST(PointerTest, KeepsTheObjectUntilTheLastOwnerGoes) {
    sDestroyed.clear();
    ZTCPointer<Base> lKept;
    {
        ZTCPointer<Base> lFirst(new (std::nothrow) Element(1), ZTPST_Individual, ZTPMT_New);
        lFirst = std::as_const(lFirst);
        EXPECT_TRUE(lFirst.isUnique());
        const ZTCPointer<Base> lSecond(lFirst);
        EXPECT_EQ(lSecond.get(), lFirst.get());
        EXPECT_FALSE(lFirst.isUnique());
        lKept = lSecond;
        lKept = lFirst;  // the same object already
    }
    EXPECT_TRUE(lKept.isUnique());
    EXPECT_EQ(sDestroyed, Ids());
    lKept = ZTCPointer<Base>(new (std::nothrow) Element(2), ZTPST_Individual, ZTPMT_New);
    EXPECT_EQ(sDestroyed, Ids{1});

    ZTCPointer<Base> lEmpty;
    EXPECT_FALSE(lEmpty != nullptr || lEmpty.isUnique());
    lEmpty.swap(lKept);
    EXPECT_TRUE(lEmpty.isUnique() && !(lKept != nullptr));
    EXPECT_EQ(sDestroyed, Ids{1});
    EXPECT_THROW(Pointer(nullptr, ZTPST_Individual, ZTPMT_New), ZTCNoMemoryEx);
}

TEST(PointerTest, LetsGoOfTheOwnerOfWhatIsAssigned) {
    sDestroyed.clear();
    auto lHead = makePointer<Node>();
    const int lFirst = lHead->mElement.mId;
    lHead->mNext = makePointer<Node>();
    lHead = lHead->mNext;
    EXPECT_EQ(sDestroyed, Ids{lFirst});
    EXPECT_TRUE(lHead.isUnique());
}

TEST(PointerTest, ReleasesEachKindAsItWasMade) {
    sDestroyed.clear();
    Element::sNextId = 1;
    {
        const ZTCPointer<Element> lArray(new (std::nothrow) Element[3], ZTPST_Array, ZTPMT_New);
        sDestroyed.push_back((*lArray).mId * 10 + lArray.get()[2].mId);
    }
    for (const auto lSizeType : {ZTPST_Individual, ZTPST_Array, ZTEPointerSizeType{}}) {
        ZTCPointer<Element>(new (malloc(sizeof(Element))) Element(4), lSizeType, ZTPMT_Malloc);
    }
    EXPECT_EQ(sDestroyed, (Ids{13, 3, 2, 1})) << "an array from its end, and nothing that malloc gave";
}

TEST(PointerTest, CountsTheOwnersOfManyThreads) {
    const auto lShared = makePointer<int>();
    std::vector<std::jthread> lThreads;
    while (lThreads.size() < 4) {
        lThreads.emplace_back([lMine = Pointer(lShared)] {
            for (int lAt = 0; lAt < 20000; ++lAt) {
                const Pointer lCopy(lMine);
            }
        });
    }
    lThreads.clear();
    EXPECT_TRUE(lShared.isUnique());
}

TEST(PointerDeathTest, EndsTheProcessWhenMisused) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const auto& [lpPlace, lpText, lpUse] : sMisuses) {
        const std::string lRecord = std::string(" -H- backend/common/include/Pointer:") + lpPlace +
                                    ": Assertion \\[ " + lpText + " \\] failed\n$";
        EXPECT_EXIT(lpUse(*new Pointer), ::testing::ExitedWithCode(1), "^[^\n]*Z [0-9]+\\.[0-9]+" + lRecord);
    }
}
