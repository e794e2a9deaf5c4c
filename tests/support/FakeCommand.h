// Stands in for a kernel that has SCSI: a description of where its structures have their members, and a page
// of the kernel's memory to lay them in. Needs the rights to load BPF programs.
#pragma once

#include <bpf/bpf.h>
#include <bpf/btf.h>
#include <linux/bpf.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

/// The offset of each member, "scsi_cmnd.result"; one that is not in it does not exist.
using ZTFakeLayout = std::map<std::string, std::uint32_t>;

/// All within one structure of that size, but what a request has: that lies before the command.
inline ZTFakeLayout fakeLayout() {
    return {{"class.name", 0},
            {"attribute_container.class", 8},
            {"transport_container.ac", 8},
            {"scsi_transport_template.host_attrs", 8},
            {"Scsi_Host.transportt", 0},
            {"Scsi_Host.host_no", 12},
            {"scsi_device.host", 8},
            {"scsi_device.id", 20},
            {"scsi_device.channel", 24},
            {"scsi_device.lun", 32},
            {"scsi_cmnd.device", 40},
            {"scsi_cmnd.cmnd", 48},
            {"scsi_cmnd.resid_len", 84},
            {"scsi_cmnd.sense_buffer", 88},
            {"scsi_cmnd.result", 96},
            {"request.tag", 4}};
}
constexpr std::uint32_t FakeRequestSize = 16;

inline void writeFakeBtf(const std::string& acrPath, const ZTFakeLayout& acrLayout) {
    btf* const lpBtf = btf__new_empty();
    const int lWord = btf__add_int(lpBtf, "unsigned int", 4, 0);
    const int lLong = btf__add_int(lpBtf, "u64", 8, 0);
    const int lPointer = btf__add_ptr(lpBtf, 0);
    const int lBytes = btf__add_array(lpBtf, lWord, btf__add_int(lpBtf, "unsigned char", 1, 0), 32);
    const struct {
        const char* mpStructure;
        std::map<const char*, int> mMembers;  // and their types; 0: the structure before this one
    } lStructures[] = {
        {"class", {{"name", lPointer}}},
        {"attribute_container", {{"class", lPointer}}},
        {"transport_container", {{"ac", 0}}},
        {"scsi_transport_template", {{"host_attrs", 0}}},
        {"Scsi_Host", {{"transportt", lPointer}, {"host_no", lWord}}},
        {"scsi_device", {{"host", lPointer}, {"id", lWord}, {"channel", lWord}, {"lun", lLong}}},
        {"scsi_cmnd",
         {{"device", lPointer},
          {"cmnd", lBytes},
          {"resid_len", lWord},
          {"sense_buffer", lPointer},
          {"result", lWord}}},
        {"request", {{"tag", lWord}}}};
    int lBefore = 0;
    for (const auto& [lpStructure, lrMembers] : lStructures) {
        const bool lIsRequest = strcmp(lpStructure, "request") == 0;
        const int lThis = btf__add_struct(lpBtf, lpStructure, lIsRequest ? FakeRequestSize : 128);
        for (const auto& [lpMember, lType] : lrMembers) {
            const auto lOffset = acrLayout.find(lpStructure + ("." + std::string(lpMember)));
            if (lOffset != acrLayout.end()) {
                btf__add_field(lpBtf, lpMember, lType != 0 ? lType : lBefore, 8 * lOffset->second, 0);
            }
        }
        lBefore = lThis;
    }
    std::uint32_t lSize = 0;
    const void* const lpBytes = btf__raw_data(lpBtf, &lSize);
    std::ofstream(acrPath, std::ios::binary).write(static_cast<const char*>(lpBytes), lSize);
    btf__free(lpBtf);
}

/// A page that the kernel and we have in common: an array that programs may use.
class ZTCKernelPage {
  public:
    static constexpr std::size_t Size = 4096;

    /// Throws std::runtime_error, with the reason.
    ZTCKernelPage() {
        bpf_map_create_opts lOptions{};
        lOptions.sz = sizeof lOptions;
        lOptions.map_flags = BPF_F_MMAPABLE;
        mMap = bpf_map_create(BPF_MAP_TYPE_ARRAY, "page", 4, Size, 1, &lOptions);
        void* const lpPage =
            mMap < 0 ? MAP_FAILED : mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_SHARED, mMap, 0);
        if (lpPage == MAP_FAILED || !findAddress(lpPage)) {
            const std::string lReason = strerror(errno);
            close(mMap);
            throw std::runtime_error("no page in common with the kernel: " + lReason);
        }
        mpPage = static_cast<unsigned char*>(lpPage);
    }
    ~ZTCKernelPage() {
        munmap(mpPage, Size);
        close(mMap);
    }
    ZTCKernelPage(const ZTCKernelPage&) = delete;
    ZTCKernelPage& operator=(const ZTCKernelPage&) = delete;

    /// What the kernel has for the address of a place in it.
    std::uint64_t at(std::size_t aPlace) const { return mAddress + aPlace; }
    void putBytes(std::size_t aPlace, const std::string& acrBytes) const {
        memcpy(mpPage + aPlace, acrBytes.data(), acrBytes.size());
    }
    template <class Value>
    void put(std::size_t aPlace, Value aValue) const {
        memcpy(mpPage + aPlace, &aValue, sizeof aValue);
    }

  private:
    // A program that writes into the page where the page is.
    bool findAddress(const void* apPage) {
        const bpf_insn lCode[] = {{BPF_LD | BPF_DW | BPF_IMM, 1, BPF_PSEUDO_MAP_VALUE, 0,
                                   mMap},  // r1 = the page, in two instructions
                                  {0, 0, 0, 0, 0},
                                  {BPF_STX | BPF_MEM | BPF_DW, 1, 1, 0, 0},
                                  {BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0},
                                  {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
        const int lProgram =
            bpf_prog_load(BPF_PROG_TYPE_RAW_TRACEPOINT, "address", "GPL", lCode, std::size(lCode), nullptr);
        bpf_test_run_opts lRun{};
        lRun.sz = sizeof lRun;
        const bool lIsFound = lProgram >= 0 && bpf_prog_test_run_opts(lProgram, &lRun) == 0;
        memcpy(&mAddress, apPage, sizeof mAddress);
        if (lProgram >= 0) {
            close(lProgram);
        }
        return lIsFound;
    }

    int mMap = -1;
    unsigned char* mpPage = nullptr;
    std::uint64_t mAddress = 0;
};

/// A chain of structures in the page, from the device on.
inline void putFakeDevice(const ZTCKernelPage& acrPage, const ZTFakeLayout& acrLayout, std::size_t aPlace,
                          const char* apTransportClass) {
    const auto lPut = [&](std::size_t aBase, const char* apMember, auto aValue) {
        acrPage.put(aBase + acrLayout.at(apMember), aValue);
    };
    const std::size_t lHost = aPlace + 128, lTransport = aPlace + 256, lClass = aPlace + 384;
    lPut(aPlace, "scsi_device.host", acrPage.at(lHost));
    lPut(aPlace, "scsi_device.id", 7U);
    lPut(aPlace, "scsi_device.channel", 2U);
    lPut(aPlace, "scsi_device.lun", std::uint64_t{0x0102030405060708});
    lPut(lHost, "Scsi_Host.host_no", 13U);
    lPut(lHost, "Scsi_Host.transportt", acrPage.at(lTransport));
    acrPage.put(lTransport + 24, acrPage.at(lClass));  // the three containers in each other, at 8 each
    acrPage.put(lClass, acrPage.at(lClass + 64));
    acrPage.putBytes(lClass + 64, std::string(apTransportClass) + '\0');
}
