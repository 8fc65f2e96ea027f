#ifndef LIBCOMMON_PROBE_CMSISDAPINTERFACE_H
#define LIBCOMMON_PROBE_CMSISDAPINTERFACE_H

// The run-time binding to the CMSIS-DAP probe library. The library is not
// linked: a plug-in that talks to a CMSIS-DAP probe calls loadLib(), then
// calls the probe's C functions through the public static pointers below,
// and calls unloadLib() once for every loadLib() when it is done. The class
// does no probe work of its own and has static members only.
//
// Loading is counted: the first loadLib() loads the library and binds all
// 28 functions, later ones only count. The last unloadLib() unloads it.
//
// Failure rule: loadLib() reports a library that cannot be found or loaded,
// or a function it lacks, by returning false and logging the reason at
// error level on the channel "cmsis"; it does not throw for these. A failed
// loadLib() still counts and owes its unloadLib(). When the library loaded
// but lacks a function, it stays loaded (inUse() is true), the pointers
// bound before the missing one stay set, and every further loadLib() fails
// until the last unloadLib(). After the last unloadLib() the pointers dangle
// until the next good loadLib(): do not call them in between.
//
// Not synchronised: the first loadLib() and the last unloadLib() must not
// race with any other call of this class.
//
// Usage:
//     if (CmsisDapInterface::loadLib()) {
//         int count = 0;
//         CmsisDapInterface::rddi_CMSIS_DAP_Detect(handle, &count);
//     }
//     CmsisDapInterface::unloadLib();

#include <Poco/SharedLibrary.h>

// The probe library is asked for by bare file name, so the platform's own
// search rule (PATH next to the program on Windows, LD_LIBRARY_PATH and the
// cache of the dynamic linker on Linux) decides which copy is loaded. The
// name follows the platform's convention for shared libraries.
#ifdef _WIN32
inline constexpr const char CMSIS_DAP_LIBRARY_NAME[] = "cmsis_dap.dll";
#else
inline constexpr const char CMSIS_DAP_LIBRARY_NAME[] = "libcmsis_dap.so";
#endif

// The connection record of the probe library. Only pointers to it pass
// through this library, so its layout is the probe library's business.
struct _RDDI_DAP_CONN_DETAILS;

extern "C" {
typedef void (*RDDI_LogCallback)(void* context, const char* const message, int level);

typedef int (*RDDI_Open_t)(int* handle, const void* details);
typedef int (*RDDI_Close_t)(int handle);
typedef int (*RDDI_GetLastError_t)(int* error, char* details, unsigned detailsLength);
typedef void (*RDDI_SetLogCallback_t)(int handle, RDDI_LogCallback callback, void* context,
                                      int maxLogLevel);
typedef int (*DAP_GetInterfaceVersion_t)(int handle, int* version);
typedef int (*DAP_Configure_t)(int handle, const char* configFile);
typedef int (*DAP_Connect_t)(int handle, _RDDI_DAP_CONN_DETAILS* details);
typedef int (*DAP_Disconnect_t)(int handle);
typedef int (*DAP_GetSupportedOptimisationLevel_t)(int handle, int* level);
typedef int (*DAP_GetNumberOfDAPs_t)(int handle, int* count);
typedef int (*DAP_GetDAPIDList_t)(int handle, int* ids, unsigned idsLength);
typedef int (*DAP_ReadReg_t)(int handle, int dap, int reg, int* value);
typedef int (*DAP_WriteReg_t)(int handle, int dap, int reg, int value);
typedef int (*DAP_RegAccessBlock_t)(int handle, int dap, int count, const int* regs, int* values);
typedef int (*DAP_RegWriteBlock_t)(int handle, int dap, int count, const int* regs,
                                   const int* values);
typedef int (*DAP_RegReadBlock_t)(int handle, int dap, int count, const int* regs, int* values);
typedef int (*DAP_RegWriteRepeat_t)(int handle, int dap, int count, int reg, const int* values);
typedef int (*DAP_RegReadRepeat_t)(int handle, int dap, int count, int reg, int* values);
typedef int (*DAP_RegReadWaitForValue_t)(int handle, int dap, int count, int reg, const int* mask,
                                         const int* value);
typedef int (*DAP_Target_t)(int handle, const char* request, char* response, int responseLength);
typedef int (*DAP_DefineSequence_t)(int handle, int sequence, void* data);
typedef int (*DAP_RunSequence_t)(int handle, int sequence, void* input, void* output);
typedef int (*CMSIS_DAP_Detect_t)(int handle, int* count);
typedef int (*CMSIS_DAP_Identify_t)(int handle, int probe, int what, char* text, int textLength);
typedef int (*CMSIS_DAP_ConfigureInterface_t)(int handle, int probe, char* settings);
typedef int (*CMSIS_DAP_DetectNumberOfDAPs_t)(int handle, int* count);
typedef int (*CMSIS_DAP_DetectDAPIDList_t)(int handle, int* ids, unsigned idsLength);
typedef int (*CMSIS_DAP_Commands_t)(int handle, int count, unsigned char** requests,
                                    int* requestLengths, unsigned char** responses,
                                    int* responseLengths);
}

class CmsisDapInterface {
public:
    CmsisDapInterface& operator=(const CmsisDapInterface&) = default;
    CmsisDapInterface& operator=(CmsisDapInterface&&) = default;

    // True when the library is loaded with every function bound.
    static bool loadLib();
    // True when the library stays in use or was unloaded now; false when
    // the last user leaves and nothing was loaded.
    static bool unloadLib();
    // Whether the library is loaded, also when a function was missing.
    static bool inUse();

    static Poco::SharedLibrary RDDI_DAP_DLL;

    // In the order loadLib() binds them.
    static RDDI_Open_t rddi_Open;
    static RDDI_Close_t rddi_Close;
    static RDDI_GetLastError_t rddi_GetLastError;
    static RDDI_SetLogCallback_t rddi_SetLogCallback;
    static DAP_GetInterfaceVersion_t rddi_DAP_GetInterfaceVersion;
    static DAP_Configure_t rddi_DAP_Configure;
    static DAP_Connect_t rddi_DAP_Connect;
    static DAP_Disconnect_t rddi_DAP_Disconnect;
    static DAP_GetSupportedOptimisationLevel_t rddi_DAP_GetSupportedOptimisationLevel;
    static DAP_GetNumberOfDAPs_t rddi_DAP_GetNumberOfDAPs;
    static DAP_GetDAPIDList_t rddi_DAP_GetDAPIDList;
    static DAP_ReadReg_t rddi_DAP_ReadReg;
    static DAP_WriteReg_t rddi_DAP_WriteReg;
    static DAP_RegAccessBlock_t rddi_DAP_RegAccessBlock;
    static DAP_RegWriteBlock_t rddi_DAP_RegWriteBlock;
    static DAP_RegReadBlock_t rddi_DAP_RegReadBlock;
    static DAP_RegWriteRepeat_t rddi_DAP_RegWriteRepeat;
    static DAP_RegReadRepeat_t rddi_DAP_RegReadRepeat;
    static DAP_RegReadWaitForValue_t rddi_DAP_RegReadWaitForValue;
    static DAP_Target_t rddi_DAP_Target;
    static DAP_DefineSequence_t rddi_DAP_DefineSequence;
    static DAP_RunSequence_t rddi_DAP_RunSequence;
    static CMSIS_DAP_Detect_t rddi_CMSIS_DAP_Detect;
    static CMSIS_DAP_Identify_t rddi_CMSIS_DAP_Identify;
    static CMSIS_DAP_ConfigureInterface_t rddi_CMSIS_DAP_ConfigureInterface;
    static CMSIS_DAP_DetectNumberOfDAPs_t rddi_CMSIS_DAP_DetectNumberOfDAPs;
    static CMSIS_DAP_DetectDAPIDList_t rddi_CMSIS_DAP_DetectDAPIDList;
    static CMSIS_DAP_Commands_t rddi_CMSIS_DAP_Commands;

private:
    static int m_nLoadUsage;
    // No code of this library opens a connection (rddi_Open is the
    // plug-in's call), so the open count, handle and open result stay 0.
    static int m_nOpenUsage;
    static bool mAllFunctionsLoaded;
    static int mRddiHandle;
    static int mOpenRetCode;
};

#endif
