#include "SmallBtf.h"

#include <bpf/btf.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "ScsiSource.h"

namespace {

struct Free {
    void operator()(btf* apBtf) const { btf__free(apBtf); }
};
using Btf = std::unique_ptr<btf, Free>;

struct Member {
    const char* mpName;
    const char* mpMissing;  // what is not known without it; null: nothing is known
};
struct Structure {
    const char* mpName;
    Member mMembers[5];
};
// Those that are within others come before them.
constexpr Structure sStructures[] = {
    {"class", {{"name", "transport classes"}}},
    {"attribute_container", {{"class", "transport classes"}}},
    {"transport_container", {{"ac", "transport classes"}}},
    {"scsi_transport_template", {{"host_attrs", "transport classes"}}},
    {"Scsi_Host", {{"transportt", "transport classes"}, {"host_no", nullptr}}},
    {"scsi_device", {{"host", nullptr}, {"id", nullptr}, {"channel", nullptr}, {"lun", nullptr}}},
    {"scsi_cmnd",
     {{"device", nullptr},
      {"cmnd", nullptr},
      {"result", nullptr},
      {"resid_len", "residuals"},
      {"sense_buffer", "sense data"}}},
    {"request", {{"tag", "tags"}}},
};

[[noreturn]] void sFail(const std::string& acrWhat) {
    throw ZTCScsiNotAvailable(acrWhat + ": " + strerror(errno));
}

// Copies structures, with only those of their members that are wanted.
class Copier {
  public:
    explicit Copier(const btf& acrFrom) : mcrFrom(acrFrom), mTo(btf__new_empty()) {
        if (mTo == nullptr) {
            sFail("a new BTF");
        }
    }

    /// Adds what is missing to the text.
    void copy(const Structure& acrStructure, std::string& arMissing) {
        const btf_type* const lpFrom = find(acrStructure);
        std::vector<Field> lFields;  // their types have to be there before the structure is begun
        for (const Member& lrMember : acrStructure.mMembers) {
            if (lrMember.mpName != nullptr &&
                (lpFrom == nullptr || !copy(*lpFrom, lrMember.mpName, lFields))) {
                miss(acrStructure, lrMember, arMissing);
            }
        }
        bool lIsAdded =
            btf__add_struct(mTo.get(), acrStructure.mpName, lpFrom != nullptr ? lpFrom->size : 0) > 0;
        for (const Field& lrField : lFields) {
            lIsAdded =
                lIsAdded && btf__add_field(mTo.get(), lrField.mpName, lrField.mType, lrField.mOffset, 0) == 0;
        }
        if (!lIsAdded) {
            sFail("the BTF of " + std::string(acrStructure.mpName));
        }
    }

    std::string_view getBytes() const {
        std::uint32_t lSize = 0;
        const void* const lpBytes = btf__raw_data(mTo.get(), &lSize);
        if (lpBytes == nullptr) {
            sFail("the bytes of a BTF");
        }
        return {static_cast<const char*>(lpBytes), lSize};
    }

  private:
    struct Field {
        const char* mpName;
        int mType;
        std::uint32_t mOffset;  // in bits
    };

    const char* name(const btf& acrBtf, std::uint32_t aOffset) const {
        const char* const lpName = btf__name_by_offset(&acrBtf, aOffset);
        return lpName != nullptr ? lpName : "";
    }

    // A structure that has the first of the members: another may have the same name.
    const btf_type* find(const Structure& acrStructure) const {
        for (std::uint32_t lId = 1; lId < btf__type_cnt(&mcrFrom); ++lId) {
            const btf_type* const lpType = btf__type_by_id(&mcrFrom, lId);
            if (btf_is_struct(lpType) && strcmp(name(mcrFrom, lpType->name_off), acrStructure.mpName) == 0 &&
                findMember(*lpType, acrStructure.mMembers[0].mpName) != nullptr) {
                return lpType;
            }
        }
        return nullptr;
    }

    const btf_member* findMember(const btf_type& acrType, const char* apName) const {
        const btf_member* const lpMembers = btf_members(&acrType);
        for (std::uint32_t lAt = 0; lAt < btf_vlen(&acrType); ++lAt) {
            if (strcmp(name(mcrFrom, lpMembers[lAt].name_off), apName) == 0 &&
                btf_member_bitfield_size(&acrType, lAt) == 0) {
                return &lpMembers[lAt];
            }
        }
        return nullptr;
    }

    bool copy(const btf_type& acrType, const char* apName, std::vector<Field>& arFields) {
        const btf_member* const lpMember = findMember(acrType, apName);
        const int lType = lpMember != nullptr ? copyType(lpMember->type) : 0;
        if (lType > 0) {
            const auto lAt = static_cast<std::uint32_t>(lpMember - btf_members(&acrType));
            arFields.push_back({apName, lType, btf_member_bit_offset(&acrType, lAt)});
        }
        return lType > 0;
    }

    // Pointers become pointers to void: the program says itself what they point to. 0 or less: not there.
    int copyType(std::uint32_t aId) {
        const int lResolved = btf__resolve_type(&mcrFrom, aId);
        const btf_type* const lpType =
            lResolved > 0 ? btf__type_by_id(&mcrFrom, static_cast<std::uint32_t>(lResolved)) : nullptr;
        if (lpType == nullptr) {
            return 0;
        }
        const char* const lpName = name(mcrFrom, lpType->name_off);
        switch (btf_kind(lpType)) {
            case BTF_KIND_INT:
                return btf__add_int(mTo.get(), lpName, lpType->size, btf_int_encoding(lpType));
            case BTF_KIND_PTR:
                return btf__add_ptr(mTo.get(), 0);
            case BTF_KIND_ARRAY: {
                const int lElement = copyType(btf_array(lpType)->type);
                return lElement > 0 ? btf__add_array(mTo.get(), lElement, lElement, btf_array(lpType)->nelems)
                                    : 0;
            }
            case BTF_KIND_STRUCT:
                return btf__find_by_name_kind(mTo.get(), lpName, BTF_KIND_STRUCT);
            default:
                return 0;
        }
    }

    static void miss(const Structure& acrStructure, const Member& acrMember, std::string& arMissing) {
        if (acrMember.mpMissing == nullptr) {
            throw ZTCScsiNotAvailable("this kernel's " + std::string(acrStructure.mpName) + " has no " +
                                      acrMember.mpName);
        }
        if (arMissing.find(acrMember.mpMissing) == std::string::npos) {
            arMissing += (arMissing.empty() ? "" : ", ") + std::string(acrMember.mpMissing);
        }
    }

    const btf& mcrFrom;
    const Btf mTo;
};

// With the kernel's. A module's may be absent.
Btf sReadModule(const std::string& acrModule, btf& arKernel) {
    Btf lpModule(btf__parse_raw_split(acrModule.c_str(), &arKernel));
    if (lpModule == nullptr && errno != ENOENT) {
        sFail(acrModule);
    }
    return lpModule;
}

int sWrite(std::string_view aBytes) {
    const int lFile = memfd_create("btf", MFD_CLOEXEC);
    if (lFile < 0) {
        sFail("a file in memory");
    }
    if (write(lFile, aBytes.data(), aBytes.size()) != static_cast<ssize_t>(aBytes.size())) {
        const int lError = errno;
        close(lFile);
        errno = lError;
        sFail("a file in memory");
    }
    return lFile;
}

}  // namespace

ZTCSmallBtf::ZTCSmallBtf(const std::string& acrKernel, const std::string& acrModule) {
    const Btf lpKernel(btf__parse_raw(acrKernel.c_str()));
    if (lpKernel == nullptr) {
        sFail("the kernel's own description, " + acrKernel);
    }
    const Btf lpModule = sReadModule(acrModule, *lpKernel);
    mIsOfModule = lpModule != nullptr;
    if (!mIsOfModule && btf__find_by_name_kind(lpKernel.get(), "scsi_cmnd", BTF_KIND_STRUCT) < 0) {
        throw ZTCScsiNotAvailable("the kernel has no SCSI: neither is there " + acrModule +
                                  ", nor is it in " + acrKernel);
    }
    Copier lCopier(mIsOfModule ? *lpModule : *lpKernel);
    for (const Structure& lrStructure : sStructures) {
        lCopier.copy(lrStructure, mMissing);
    }
    mFile = sWrite(lCopier.getBytes());
}

ZTCSmallBtf::~ZTCSmallBtf() {
    close(mFile);
}
