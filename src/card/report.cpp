#include "card/report.h"

#include <cstdio>
#include <ctime>

#include "base/hex.h"
#include "base/timestamp.h"
#include "card/serial.h"

namespace {

void printed() { std::fflush(stdout); }

void printBytes(const std::vector<unsigned char>& bytes) {
    print_hex(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

}  // namespace

void printReaderHeader(const char* readerName) {
    std::printf("\r\n %s : ", readerName);
    printed();
}

void printSerialNumber(const unsigned char* sn) {
    std::printf("#SN:");
    print_hex(sn, kSnBytes);
}

void printInitOk() {
    std::puts("cs_init - Ok!\r");
    printed();
}

int fail(const char* message, int code) {
    std::printf("%s", message);
    printed();
    return code;
}

void printVerifyHeader(const char* readerName, const unsigned char* sn, const char* ssn) {
    std::printf(" %s : ", readerName);
    printSerialNumber(sn);
    std::printf(" (#SSN:%s) ", ssn);
}

int failNoRecord(const char* recordFile, int code) {
    std::printf("SN found error in file %s!", recordFile != nullptr ? recordFile : "(null)");
    printed();
    return code;
}

void printVerified() {
    std::puts("cs_pcs_file - Ok!\r");
    printed();
}

void printRecord(const unsigned char* sn, const char* ssn, const std::vector<unsigned char>& iv,
                 const std::vector<unsigned char>& cs, const std::vector<unsigned char>& pcs) {
    printSerialNumber(sn);
    std::printf("(#SSN:%s)", ssn);
    std::printf("#IV:");
    printBytes(iv);
    std::printf("#CS:");
    printBytes(cs);
    std::printf("#PCS:");
    printBytes(pcs);
    char stamp[80];
    formatTimeStamp(std::time(nullptr), stamp, sizeof stamp);
    std::printf("#GEN_TIME:%s", stamp);
    std::puts("\r");
    printed();
}
