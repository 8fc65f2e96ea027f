#include "fakecmsisdap.h"

#include "libcommon/probe/cmsisdapinterface.h"

#include <cstring>
#include <type_traits>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

// Each function is checked against the binding's pointer type, so the two
// cannot drift apart without the fake failing to build.
#define FAKE_CHECK(symbol, pointer) \
    static_assert(std::is_same_v<decltype(&symbol), decltype(CmsisDapInterface::pointer)>)

namespace {
int result(int position) {
    return FAKE_RESULT_BASE + position;
}
}  // namespace

// Hands out FAKE_HANDLE.
FAKE_EXPORT int RDDI_Open(int* handle, const void*) {
    if (handle) *handle = FAKE_HANDLE;
    return result(1);
}
FAKE_EXPORT int RDDI_Close(int) {
    return result(2);
}
// Reports FAKE_LAST_ERROR and FAKE_ERROR_TEXT, cut to the buffer.
FAKE_EXPORT int RDDI_GetLastError(int* error, char* details, unsigned length) {
    if (error) *error = FAKE_LAST_ERROR;
    if (details && length > 0) {
        std::strncpy(details, FAKE_ERROR_TEXT, length - 1);
        details[length - 1] = '\0';
    }
    return result(3);
}
// Logs FAKE_LOG_TEXT at once, at the level it is given.
FAKE_EXPORT void RDDI_SetLogCallback(int, RDDI_LogCallback callback, void* context, int level) {
    if (callback) callback(context, FAKE_LOG_TEXT, level);
}
FAKE_EXPORT int DAP_GetInterfaceVersion(int, int*) {
    return result(5);
}
FAKE_EXPORT int DAP_Configure(int, const char*) {
    return result(6);
}
FAKE_EXPORT int DAP_Connect(int, _RDDI_DAP_CONN_DETAILS*) {
    return result(7);
}
FAKE_EXPORT int DAP_Disconnect(int) {
    return result(8);
}
FAKE_EXPORT int DAP_GetSupportedOptimisationLevel(int, int*) {
    return result(9);
}
FAKE_EXPORT int DAP_GetNumberOfDAPs(int, int*) {
    return result(10);
}
FAKE_EXPORT int DAP_GetDAPIDList(int, int*, unsigned) {
    return result(11);
}
// Reads the handle plus the register number.
FAKE_EXPORT int DAP_ReadReg(int handle, int, int reg, int* value) {
    if (value) *value = handle + reg;
    return result(12);
}
FAKE_EXPORT int DAP_WriteReg(int, int, int, int) {
    return result(13);
}
FAKE_EXPORT int DAP_RegAccessBlock(int, int, int, const int*, int*) {
    return result(14);
}
FAKE_EXPORT int DAP_RegWriteBlock(int, int, int, const int*, const int*) {
    return result(15);
}
FAKE_EXPORT int DAP_RegReadBlock(int, int, int, const int*, int*) {
    return result(16);
}
FAKE_EXPORT int DAP_RegWriteRepeat(int, int, int, int, const int*) {
    return result(17);
}
FAKE_EXPORT int DAP_RegReadRepeat(int, int, int, int, int*) {
    return result(18);
}
FAKE_EXPORT int DAP_RegReadWaitForValue(int, int, int, int, const int*, const int*) {
    return result(19);
}
FAKE_EXPORT int DAP_Target(int, const char*, char*, int) {
    return result(20);
}
FAKE_EXPORT int DAP_DefineSequence(int, int, void*) {
    return result(21);
}
FAKE_EXPORT int DAP_RunSequence(int, int, void*, void*) {
    return result(22);
}
FAKE_EXPORT int CMSIS_DAP_Detect(int, int*) {
    return result(23);
}
FAKE_EXPORT int CMSIS_DAP_Identify(int, int, int, char*, int) {
    return result(24);
}
FAKE_EXPORT int CMSIS_DAP_ConfigureInterface(int, int, char*) {
    return result(25);
}
FAKE_EXPORT int CMSIS_DAP_DetectNumberOfDAPs(int, int*) {
    return result(26);
}
FAKE_EXPORT int CMSIS_DAP_DetectDAPIDList(int, int*, unsigned) {
    return result(27);
}

#ifndef FAKE_WITHOUT_COMMANDS
// Answers each request with its bytes, each one higher.
FAKE_EXPORT int CMSIS_DAP_Commands(int, int count, unsigned char** requests, int* requestLengths,
                                   unsigned char** responses, int* responseLengths) {
    for (int i = 0; i < count; ++i) {
        for (int j = 0; j < requestLengths[i]; ++j) {
            responses[i][j] = static_cast<unsigned char>(requests[i][j] + 1);
        }
        responseLengths[i] = requestLengths[i];
    }
    return result(28);
}
FAKE_CHECK(CMSIS_DAP_Commands, rddi_CMSIS_DAP_Commands);
#endif

FAKE_CHECK(RDDI_Open, rddi_Open);
FAKE_CHECK(RDDI_Close, rddi_Close);
FAKE_CHECK(RDDI_GetLastError, rddi_GetLastError);
FAKE_CHECK(RDDI_SetLogCallback, rddi_SetLogCallback);
FAKE_CHECK(DAP_GetInterfaceVersion, rddi_DAP_GetInterfaceVersion);
FAKE_CHECK(DAP_Configure, rddi_DAP_Configure);
FAKE_CHECK(DAP_Connect, rddi_DAP_Connect);
FAKE_CHECK(DAP_Disconnect, rddi_DAP_Disconnect);
FAKE_CHECK(DAP_GetSupportedOptimisationLevel, rddi_DAP_GetSupportedOptimisationLevel);
FAKE_CHECK(DAP_GetNumberOfDAPs, rddi_DAP_GetNumberOfDAPs);
FAKE_CHECK(DAP_GetDAPIDList, rddi_DAP_GetDAPIDList);
FAKE_CHECK(DAP_ReadReg, rddi_DAP_ReadReg);
FAKE_CHECK(DAP_WriteReg, rddi_DAP_WriteReg);
FAKE_CHECK(DAP_RegAccessBlock, rddi_DAP_RegAccessBlock);
FAKE_CHECK(DAP_RegWriteBlock, rddi_DAP_RegWriteBlock);
FAKE_CHECK(DAP_RegReadBlock, rddi_DAP_RegReadBlock);
FAKE_CHECK(DAP_RegWriteRepeat, rddi_DAP_RegWriteRepeat);
FAKE_CHECK(DAP_RegReadRepeat, rddi_DAP_RegReadRepeat);
FAKE_CHECK(DAP_RegReadWaitForValue, rddi_DAP_RegReadWaitForValue);
FAKE_CHECK(DAP_Target, rddi_DAP_Target);
FAKE_CHECK(DAP_DefineSequence, rddi_DAP_DefineSequence);
FAKE_CHECK(DAP_RunSequence, rddi_DAP_RunSequence);
FAKE_CHECK(CMSIS_DAP_Detect, rddi_CMSIS_DAP_Detect);
FAKE_CHECK(CMSIS_DAP_Identify, rddi_CMSIS_DAP_Identify);
FAKE_CHECK(CMSIS_DAP_ConfigureInterface, rddi_CMSIS_DAP_ConfigureInterface);
FAKE_CHECK(CMSIS_DAP_DetectNumberOfDAPs, rddi_CMSIS_DAP_DetectNumberOfDAPs);
FAKE_CHECK(CMSIS_DAP_DetectDAPIDList, rddi_CMSIS_DAP_DetectDAPIDList);
