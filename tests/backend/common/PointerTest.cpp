#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
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
using Use = void (*)(Pointer& arPointer);

// A pointer of any state, also one that cannot come about: object and counter are there or not.
void useBroken(bool aHasObject, bool aHasCount, unsigned char aSizeType, unsigned char aMemoryType,
               Use apUse) {
    const struct {
        int* mpObject;
        ZTCReferenceCount* mpCount;
        unsigned char mTypes[2];
    } lState{aHasObject ? new int : nullptr,
             aHasCount ? new ZTCReferenceCount(1) : nullptr,
             {aSizeType, aMemoryType}};
    static_assert(sizeof lState == sizeof(Pointer));
    auto* const lpPointer = new Pointer;
    memcpy(static_cast<void*>(lpPointer), &lState, sizeof lState);
    apUse(*lpPointer);
}

constexpr Use sCopy = [](Pointer& arPointer) { Pointer{std::as_const(arPointer)}; };
constexpr Use sAssign = [](Pointer& arPointer) { Pointer() = arPointer; };
constexpr Use sAssignToItself = [](Pointer& arPointer) { arPointer = std::as_const(arPointer); };
constexpr Use sDereference = [](Pointer& arPointer) { *arPointer = 1; };
constexpr Use sArrowConst = [](Pointer& arPointer) { *std::as_const(arPointer).operator->() = 1; };
constexpr Use sArrow = [](Pointer& arPointer) { *arPointer.operator->() = 1; };
constexpr Use sGet = [](Pointer& arPointer) { *arPointer.get() = 1; };
constexpr Use sDestroy = [](Pointer& arPointer) { arPointer.~Pointer(); };

constexpr char sNoCopied[] = "0 != acrCopy\\.mPointer";
constexpr char sNoCopiedCount[] = "0 != acrCopy\\.mReferenceCount";
constexpr char sNoObject[] = "0 != mPointer";
constexpr char sNoCount[] = "0 != mReferenceCount";
constexpr char sNotOne[] = "ZTPST_Individual == mSizeType";

const struct {
    unsigned int mLine;
    const char* mpFunction;  // as a regular expression, like the text
    const char* mpText;
    bool mHasObject, mHasCount;
    unsigned char mSizeType, mMemoryType;
    Use mpUse;
} sMisuses[] = {
    {297, "ZTCPointer", sNoCopied, false, true, 1, 1, sCopy},
    {298, "ZTCPointer", sNoCopiedCount, true, false, 1, 1, sCopy},
    {337, "operator=", sNoCopied, false, true, 1, 1, sAssign},
    {337, "operator=", sNoCopied, false, false, 0, 0, sAssignToItself},
    {338, "operator=", sNoCopiedCount, true, false, 1, 1, sAssign},
    {395, "operator\\*", sNoObject, false, true, 1, 1, sDereference},
    {396, "operator\\*", sNoCount, true, false, 1, 1, sDereference},
    {406, "operator\\*", "false", true, true, 0, 1, sDereference},
    {406, "operator\\*", "false", true, true, 3, 1, sDereference},
    {443, "operator->", sNoObject, false, true, 1, 1, sArrowConst},
    {444, "operator->", sNoCount, true, false, 1, 1, sArrowConst},
    {446, "operator->", sNotOne, true, true, 2, 1, sArrowConst},
    {460, "operator->", sNoObject, false, true, 1, 1, sArrow},
    {461, "operator->", sNoCount, true, false, 1, 1, sArrow},
    {463, "operator->", sNotOne, true, true, 2, 1, sArrow},
    {503, "_releaseMemory", "false", true, true, 3, 1, sDestroy},
    {511, "_releaseMemory", "false", true, true, 1, 3, sDestroy},
    {614, "get", sNoObject, false, true, 1, 1, sGet},
    {615, "get", sNoCount, true, false, 1, 1, sGet},
};

// What standard error has to consist of: this one record.
std::string recordOf(unsigned int aLine, const std::string& acrFunction, const std::string& acrText) {
    return "^[^\n]*Z [0-9]+\\.[0-9]+ -H- backend/common/include/Pointer:" + std::to_string(aLine) + " " +
           acrFunction + ": Assertion \\[ " + acrText + " \\] failed\n$";
}

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
    sDestroyed.reserve(8);
    Element::sNextId = 1;
    FailingAllocator lAllocator(0);
    {
        const ZTCPointer<Element> lArray(new (std::nothrow) Element[3], ZTPST_Array, ZTPMT_New);
        sDestroyed.push_back((*lArray).mId * 10 + lArray.get()[2].mId);
    }
    for (const auto lSizeType : {ZTPST_Individual, ZTPST_Array, ZTEPointerSizeType{}}) {
        ZTCPointer<Element>(new (malloc(sizeof(Element))) Element(4), lSizeType, ZTPMT_Malloc);
    }
    lAllocator.stop();
    EXPECT_EQ(sDestroyed, (Ids{13, 3, 2, 1})) << "an array from its end, and nothing that malloc gave";
    EXPECT_EQ(lAllocator.getLiveBlocks() + lAllocator.getWronglyFreed(), 0U);
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
    for (const auto& lrCase : sMisuses) {
        EXPECT_EXIT(useBroken(lrCase.mHasObject, lrCase.mHasCount, lrCase.mSizeType, lrCase.mMemoryType,
                              lrCase.mpUse),
                    ::testing::ExitedWithCode(1), recordOf(lrCase.mLine, lrCase.mpFunction, lrCase.mpText));
    }
}
