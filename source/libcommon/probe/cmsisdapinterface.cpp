#include "libcommon/probe/cmsisdapinterface.h"

#include "libcommon/core/logging.h"

#include <Poco/Exception.h>

namespace {

const std::string L_CMSIS = "cmsis";

// getSymbol hands out object pointers; the library exports functions.
template <typename Function>
void bind(Function& pointer, const char* symbol) {
    pointer = reinterpret_cast<Function>(CmsisDapInterface::RDDI_DAP_DLL.getSymbol(symbol));
}

void logFailure(const Poco::Exception& e) {
    if (gLogMask & LOG_MASK_ERROR) BackendLogger::error(L_CMSIS, e.displayText());
}

}  // namespace

Poco::SharedLibrary CmsisDapInterface::RDDI_DAP_DLL;

RDDI_Open_t CmsisDapInterface::rddi_Open = nullptr;
RDDI_Close_t CmsisDapInterface::rddi_Close = nullptr;
RDDI_GetLastError_t CmsisDapInterface::rddi_GetLastError = nullptr;
RDDI_SetLogCallback_t CmsisDapInterface::rddi_SetLogCallback = nullptr;
DAP_GetInterfaceVersion_t CmsisDapInterface::rddi_DAP_GetInterfaceVersion = nullptr;
DAP_Configure_t CmsisDapInterface::rddi_DAP_Configure = nullptr;
DAP_Connect_t CmsisDapInterface::rddi_DAP_Connect = nullptr;
DAP_Disconnect_t CmsisDapInterface::rddi_DAP_Disconnect = nullptr;
DAP_GetSupportedOptimisationLevel_t CmsisDapInterface::rddi_DAP_GetSupportedOptimisationLevel =
    nullptr;
DAP_GetNumberOfDAPs_t CmsisDapInterface::rddi_DAP_GetNumberOfDAPs = nullptr;
DAP_GetDAPIDList_t CmsisDapInterface::rddi_DAP_GetDAPIDList = nullptr;
DAP_ReadReg_t CmsisDapInterface::rddi_DAP_ReadReg = nullptr;
DAP_WriteReg_t CmsisDapInterface::rddi_DAP_WriteReg = nullptr;
DAP_RegAccessBlock_t CmsisDapInterface::rddi_DAP_RegAccessBlock = nullptr;
DAP_RegWriteBlock_t CmsisDapInterface::rddi_DAP_RegWriteBlock = nullptr;
DAP_RegReadBlock_t CmsisDapInterface::rddi_DAP_RegReadBlock = nullptr;
DAP_RegWriteRepeat_t CmsisDapInterface::rddi_DAP_RegWriteRepeat = nullptr;
DAP_RegReadRepeat_t CmsisDapInterface::rddi_DAP_RegReadRepeat = nullptr;
DAP_RegReadWaitForValue_t CmsisDapInterface::rddi_DAP_RegReadWaitForValue = nullptr;
DAP_Target_t CmsisDapInterface::rddi_DAP_Target = nullptr;
DAP_DefineSequence_t CmsisDapInterface::rddi_DAP_DefineSequence = nullptr;
DAP_RunSequence_t CmsisDapInterface::rddi_DAP_RunSequence = nullptr;
CMSIS_DAP_Detect_t CmsisDapInterface::rddi_CMSIS_DAP_Detect = nullptr;
CMSIS_DAP_Identify_t CmsisDapInterface::rddi_CMSIS_DAP_Identify = nullptr;
CMSIS_DAP_ConfigureInterface_t CmsisDapInterface::rddi_CMSIS_DAP_ConfigureInterface = nullptr;
CMSIS_DAP_DetectNumberOfDAPs_t CmsisDapInterface::rddi_CMSIS_DAP_DetectNumberOfDAPs = nullptr;
CMSIS_DAP_DetectDAPIDList_t CmsisDapInterface::rddi_CMSIS_DAP_DetectDAPIDList = nullptr;
CMSIS_DAP_Commands_t CmsisDapInterface::rddi_CMSIS_DAP_Commands = nullptr;

int CmsisDapInterface::m_nLoadUsage = 0;
int CmsisDapInterface::m_nOpenUsage = 0;
bool CmsisDapInterface::mAllFunctionsLoaded = false;
int CmsisDapInterface::mRddiHandle = 0;
int CmsisDapInterface::mOpenRetCode = 0;

bool CmsisDapInterface::loadLib() {
    ++m_nLoadUsage;
    if (mAllFunctionsLoaded) return true;
    try {
        RDDI_DAP_DLL.load(CMSIS_DAP_LIBRARY_NAME);
        bind(rddi_Open, "RDDI_Open");
        bind(rddi_Close, "RDDI_Close");
        bind(rddi_GetLastError, "RDDI_GetLastError");
        bind(rddi_SetLogCallback, "RDDI_SetLogCallback");
        bind(rddi_DAP_GetInterfaceVersion, "DAP_GetInterfaceVersion");
        bind(rddi_DAP_Configure, "DAP_Configure");
        bind(rddi_DAP_Connect, "DAP_Connect");
        bind(rddi_DAP_Disconnect, "DAP_Disconnect");
        bind(rddi_DAP_GetSupportedOptimisationLevel, "DAP_GetSupportedOptimisationLevel");
        bind(rddi_DAP_GetNumberOfDAPs, "DAP_GetNumberOfDAPs");
        bind(rddi_DAP_GetDAPIDList, "DAP_GetDAPIDList");
        bind(rddi_DAP_ReadReg, "DAP_ReadReg");
        bind(rddi_DAP_WriteReg, "DAP_WriteReg");
        bind(rddi_DAP_RegAccessBlock, "DAP_RegAccessBlock");
        bind(rddi_DAP_RegWriteBlock, "DAP_RegWriteBlock");
        bind(rddi_DAP_RegReadBlock, "DAP_RegReadBlock");
        bind(rddi_DAP_RegWriteRepeat, "DAP_RegWriteRepeat");
        bind(rddi_DAP_RegReadRepeat, "DAP_RegReadRepeat");
        bind(rddi_DAP_RegReadWaitForValue, "DAP_RegReadWaitForValue");
        bind(rddi_DAP_Target, "DAP_Target");
        bind(rddi_DAP_DefineSequence, "DAP_DefineSequence");
        bind(rddi_DAP_RunSequence, "DAP_RunSequence");
        bind(rddi_CMSIS_DAP_Detect, "CMSIS_DAP_Detect");
        bind(rddi_CMSIS_DAP_Identify, "CMSIS_DAP_Identify");
        bind(rddi_CMSIS_DAP_ConfigureInterface, "CMSIS_DAP_ConfigureInterface");
        bind(rddi_CMSIS_DAP_DetectNumberOfDAPs, "CMSIS_DAP_DetectNumberOfDAPs");
        bind(rddi_CMSIS_DAP_DetectDAPIDList, "CMSIS_DAP_DetectDAPIDList");
        bind(rddi_CMSIS_DAP_Commands, "CMSIS_DAP_Commands");
        mAllFunctionsLoaded = true;
        return true;
    } catch (const Poco::LibraryAlreadyLoadedException& e) {
        logFailure(e);
    } catch (const Poco::LibraryLoadException& e) {
        logFailure(e);
    } catch (const Poco::NotFoundException& e) {
        logFailure(e);
    }
    // Still counted: the caller owes an unloadLib() for this call too.
    return false;
}

bool CmsisDapInterface::unloadLib() {
    // An unbalanced call is the caller's error; the count is not allowed to
    // go below 0, so a stray call cannot make the next loadLib() a no-op.
    if (m_nLoadUsage > 0) --m_nLoadUsage;
    if (m_nLoadUsage > 0) return true;
    mAllFunctionsLoaded = false;
    if (!RDDI_DAP_DLL.isLoaded()) return false;
    RDDI_DAP_DLL.unload();
    return true;
}

bool CmsisDapInterface::inUse() {
    return RDDI_DAP_DLL.isLoaded();
}
