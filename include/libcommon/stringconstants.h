#ifndef LIBCOMMON_STRINGCONSTANTS_H
#define LIBCOMMON_STRINGCONSTANTS_H

// The one set of shared name constants of the library: architecture,
// address-space and segment names of the device description, and the
// property keys and value words that contexts report and read.
//
// Names are compared exactly, with case. The constants are inline so that
// every translation unit sees one object with the same text and no
// component has to be linked just for them; within a unit they are
// initialised before any later definition that uses them.
//
// Constants are named with a prefix per context kind because several kinds
// share a key text ("Name", "Size") and because plain names like BIG_ENDIAN
// are macros of the C library.

#include <string>

// ---------------------------------------------------------------------------
// Architectures: the values of DIDevice::getArchitecture().
inline const std::string ARCH_TARN8 = "TARN8";
inline const std::string ARCH_TARN8L = "TARN8L";
inline const std::string ARCH_TARN8X = "TARN8X";
inline const std::string ARCH_TARN8_ORBIT = "TARN8_ORBIT";
inline const std::string ARCH_TARN32_PELT = "TARN32_PELT";
inline const std::string ARCH_TARN32_VANE = "TARN32_VANE";
inline const std::string ARCH_CORTEX_M0PLUS = "CORTEX-M0PLUS";
inline const std::string ARCH_CORTEX_M3 = "CORTEX-M3";
inline const std::string ARCH_CORTEX_M4 = "CORTEX-M4";
inline const std::string ARCH_CORTEX_M7 = "CORTEX-M7";

// ---------------------------------------------------------------------------
// Address-space names.
inline const std::string ADDRSPACE_BASE = "base";
inline const std::string ADDRSPACE_PROG = "prog";
inline const std::string ADDRSPACE_DATA = "data";
inline const std::string ADDRSPACE_IO = "io";
inline const std::string ADDRSPACE_REGISTERS = "registers";
inline const std::string ADDRSPACE_EEPROM = "eeprom";
inline const std::string ADDRSPACE_FUSES = "fuses";
inline const std::string ADDRSPACE_LOCKBITS = "lockbits";
inline const std::string ADDRSPACE_SIGNATURES = "signatures";
inline const std::string ADDRSPACE_USER_SIGNATURES = "user_signatures";
inline const std::string ADDRSPACE_PROD_SIGNATURES = "prod_signatures";
inline const std::string ADDRSPACE_OSCCAL = "osccal";
inline const std::string ADDRSPACE_SYSREG = "sysreg";

// ---------------------------------------------------------------------------
// Memory segment names.
inline const std::string SEGMENT_FLASH = "FLASH";
inline const std::string SEGMENT_IFLASH = "IFLASH";
inline const std::string SEGMENT_IFLASH0 = "IFLASH0";
inline const std::string SEGMENT_IFLASH1 = "IFLASH1";
inline const std::string SEGMENT_BOOT_SECTION = "BOOT_SECTION";
inline const std::string SEGMENT_APP_SECTION = "APP_SECTION";
inline const std::string SEGMENT_PROGMEM = "PROGMEM";
inline const std::string SEGMENT_ROM = "ROM";
inline const std::string SEGMENT_IROM = "IROM";
inline const std::string SEGMENT_RWW = "RWW";
inline const std::string SEGMENT_APPTABLE_SECTION = "APPTABLE_SECTION";
inline const std::string SEGMENT_SRAM = "SRAM";
inline const std::string SEGMENT_IRAM = "IRAM";
inline const std::string SEGMENT_IRAM0 = "IRAM0";
inline const std::string SEGMENT_IRAM1 = "IRAM1";
inline const std::string SEGMENT_IDRAM = "IDRAM";
inline const std::string SEGMENT_XRAM = "XRAM";
inline const std::string SEGMENT_HRAMC0 = "HRAMC0";
inline const std::string SEGMENT_HRAMC1 = "HRAMC1";
inline const std::string SEGMENT_BLERAM = "BLERAM";
inline const std::string SEGMENT_INTERNAL_SRAM = "INTERNAL_SRAM";
inline const std::string SEGMENT_PERIPHERALS = "PERIPHERALS";
inline const std::string SEGMENT_USER_PAGE = "USER_PAGE";
inline const std::string SEGMENT_FUSES = "FUSES";
inline const std::string SEGMENT_LOCKBITS = "LOCKBITS";
inline const std::string SEGMENT_SIGNATURES = "SIGNATURES";
inline const std::string SEGMENT_USER_SIGNATURES = "USER_SIGNATURES";
inline const std::string SEGMENT_PROD_SIGNATURES = "PROD_SIGNATURES";
inline const std::string SEGMENT_IO = "IO";
inline const std::string SEGMENT_MAPPED_IO = "MAPPED_IO";
inline const std::string SEGMENT_MAPPED_EEPROM = "MAPPED_EEPROM";
inline const std::string SEGMENT_EEPROM = "EEPROM";
inline const std::string SEGMENT_REGISTERS = "REGISTERS";
inline const std::string SEGMENT_VGA = "VGA";

// Short memory-kind names; kept for plug-ins, the library reads none of them.
inline const std::string MEMKIND_RAM = "ram";
inline const std::string MEMKIND_DATA = "data";
inline const std::string MEMKIND_REGS = "regs";
inline const std::string MEMKIND_IO = "io";
inline const std::string MEMKIND_PROG = "prog";
inline const std::string MEMKIND_EEPROM = "eeprom";

// ---------------------------------------------------------------------------
// Property keys common to all contexts.
inline const std::string PROP_ID = "ID";
inline const std::string PROP_PARENT_ID = "ParentID";
// Declared without a context of the library.
inline const std::string PROP_PATH = "Path";
inline const std::string PROP_MODE = "Mode";

// ---------------------------------------------------------------------------
// Run control.
inline const std::string RUNCTRL_CAN_SUSPEND = "CanSuspend";
inline const std::string RUNCTRL_CAN_RESUME = "CanResume";
inline const std::string RUNCTRL_CAN_COUNT = "CanCount";
inline const std::string RUNCTRL_IS_CONTAINER = "IsContainer";
inline const std::string RUNCTRL_HAS_STATE = "HasState";
inline const std::string RUNCTRL_CAN_TERMINATE = "CanTerminate";
inline const std::string RUNCTRL_ISR_STEP_INTO = "IsrStepInto";
inline const std::string RUNCTRL_RECONNECT = "Reconnect";
inline const std::string RUNCTRL_BREAKPOINT_ID = "BreakpointID";
inline const std::string RUNCTRL_BREAKPOINTS_HIT = "BreakpointsHit";

// Words for the reason of a state change.
inline const std::string REASON_SUSPENDED = "Suspended";
inline const std::string REASON_STEP = "Step";
inline const std::string REASON_BREAKPOINT = "Breakpoint";
inline const std::string REASON_EXCEPTION = "Exception";
inline const std::string REASON_CONTAINER = "Container";
inline const std::string REASON_WATCHPOINT = "Watchpoint";
inline const std::string REASON_SIGNAL = "Signal";
inline const std::string REASON_SHARED_LIBRARY = "Shared Library";
inline const std::string REASON_ERROR = "Error";
inline const std::string REASON_RESET = "Reset";

// ---------------------------------------------------------------------------
// Registers.
inline const std::string REG_PROCESS_ID = "ProcessID";
inline const std::string REG_NAME = "Name";
inline const std::string REG_SIZE = "Size";
inline const std::string REG_FLOAT = "Float";
inline const std::string REG_BIG_ENDIAN = "BigEndian";
inline const std::string REG_DESCRIPTION = "Description";
inline const std::string REG_READABLE = "Readable";
inline const std::string REG_READ_ONCE = "ReadOnce";
inline const std::string REG_WRITEABLE = "Writeable";
inline const std::string REG_WRITE_ONCE = "WriteOnce";
inline const std::string REG_SIDE_EFFECTS = "SideEffects";
inline const std::string REG_VOLATILE = "Volatile";
inline const std::string REG_LEFT_TO_RIGHT = "LeftToRight";
inline const std::string REG_FIRST_BIT = "FirstBit";
inline const std::string REG_BITS = "Bits";
inline const std::string REG_VALUES = "Values";
inline const std::string REG_MEMORY_ADDRESS = "MemoryAddress";
inline const std::string REG_MEMORY_CONTEXT = "MemoryContext";
inline const std::string REG_CAN_SEARCH = "CanSearch";
inline const std::string REG_ROLE = "Role";
inline const std::string REG_EQUAL_VALUE = "EqualValue";

// Words for "Role".
inline const std::string ROLE_PC = "PC";
inline const std::string ROLE_SP = "SP";
inline const std::string ROLE_FP = "FP";
inline const std::string ROLE_RET = "RET";
inline const std::string ROLE_CORE = "CORE";
inline const std::string ROLE_SREG = "SREG";
inline const std::string ROLE_ALIAS = "ALIAS";
inline const std::string ROLE_CYCLECOUNTER = "CYCLECOUNTER";

// ---------------------------------------------------------------------------
// Stack frames.
inline const std::string FRAME_NAME = "Name";
inline const std::string FRAME_PROCESS_ID = "ProcessID";
inline const std::string FRAME_FP = "FP";
inline const std::string FRAME_RP = "RP";
inline const std::string FRAME_IP = "IP";
inline const std::string FRAME_ARGS_CNT = "ArgsCnt";
inline const std::string FRAME_ARGS_ADDR = "ArgsAddr";
inline const std::string FRAME_LEVEL = "Level";
inline const std::string FRAME_LINE = "Line";
inline const std::string FRAME_FUNC = "Func";
inline const std::string FRAME_FILE = "File";

// ---------------------------------------------------------------------------
// Devices (all for plug-ins; the device context reports only the common keys).
inline const std::string DEVICE_NAME = "Name";
inline const std::string DEVICE_SESSION = "Session";
inline const std::string DEVICE_MEMORY_IDS = "MemoryIDs";
inline const std::string DEVICE_RUN_CONTROL_ID = "RunControlID";
inline const std::string DEVICE_REGISTERS_ID = "RegistersID";
inline const std::string DEVICE_TRACE_ID = "TraceID";
inline const std::string DEVICE_KEEP_TIMERS_RUNNING = "KeepTimersRunning";
inline const std::string DEVICE_JTAG_ID = "JtagId";
inline const std::string DEVICE_SIGNATURE = "Signature";
inline const std::string DEVICE_FLASHC_BASE_ADDRESS = "FlashcBaseAddress";
inline const std::string DEVICE_FLASH_SIZE = "FlashSize";
inline const std::string DEVICE_FLASH_PAGE_SIZE = "FlashPageSize";
inline const std::string DEVICE_NUM_RESET_DOMAINS = "NumResetDomains";
inline const std::string DEVICE_BUGGY_SLINE_BLOCK_READ = "BuggySlineBlockRead";
inline const std::string DEVICE_BUGGY_SLINE_BLOCK_WRITE = "BuggySlineBlockWrite";

// ---------------------------------------------------------------------------
// Processes (all for plug-ins). Note the small d of "RunControlId", unlike
// the device's "RunControlID".
inline const std::string PROCESS_NAME = "Name";
inline const std::string PROCESS_ATTACHED = "Attached";
inline const std::string PROCESS_CAN_TERMINATE = "CanTerminate";
inline const std::string PROCESS_STDIN_ID = "StdInID";
inline const std::string PROCESS_STDOUT_ID = "StdOutID";
inline const std::string PROCESS_STDERR_ID = "StdErrID";
inline const std::string PROCESS_RUN_CONTROL_ID = "RunControlId";
inline const std::string PROCESS_MEMORY_TYPE = "MemoryType";
inline const std::string PROCESS_LOAD_ADDRESS = "LoadAddress";
inline const std::string PROCESS_USE_SYMBOLS = "UseSymbols";
inline const std::string PROCESS_SIGNATURE = "Signature";
inline const std::string PROCESS_TRACE_ID = "TraceID";

// ---------------------------------------------------------------------------
// Memories.
inline const std::string MEMCTX_PROCESS_ID = "ProcessID";
inline const std::string MEMCTX_BIG_ENDIAN = "BigEndian";
inline const std::string MEMCTX_ADDRESS_SIZE = "AddressSize";
inline const std::string MEMCTX_NAME = "Name";
inline const std::string MEMCTX_START_BOUND = "StartBound";
inline const std::string MEMCTX_END_BOUND = "EndBound";
inline const std::string MEMCTX_BOOTLOADER_START_ADDR = "BootloaderStartAddr";
inline const std::string MEMCTX_BOOTLOADER_SIZE = "BootloaderSize";
inline const std::string MEMCTX_ACCESS_TYPES = "AccessTypes";

// Words for "AccessTypes".
inline const std::string ACCESS_TYPE_INSTRUCTION = "instruction";
inline const std::string ACCESS_TYPE_DATA = "data";
inline const std::string ACCESS_TYPE_IO = "io";
inline const std::string ACCESS_TYPE_USER = "user";
inline const std::string ACCESS_TYPE_SUPERVISOR = "supervisor";
inline const std::string ACCESS_TYPE_HYPERVISOR = "hypervisor";
inline const std::string ACCESS_TYPE_VIRTUAL = "virtual";
inline const std::string ACCESS_TYPE_PHYSICAL = "physical";
inline const std::string ACCESS_TYPE_CACHE = "cache";
inline const std::string ACCESS_TYPE_TLB = "tlb";

// ---------------------------------------------------------------------------
// Symbols.
inline const std::string SYM_ID = "ID";
inline const std::string SYM_NAME = "Name";
inline const std::string SYM_CLASS = "Class";
inline const std::string SYM_TYPE_CLASS = "TypeClass";
inline const std::string SYM_TYPE_ID = "TypeID";
inline const std::string SYM_BASE_TYPE_ID = "BaseTypeID";
inline const std::string SYM_INDEX_TYPE_ID = "IndexTypeID";
inline const std::string SYM_SIZE = "Size";
inline const std::string SYM_LENGTH = "Length";
inline const std::string SYM_OFFSET = "Offset";
inline const std::string SYM_ADDRESS = "Address";
inline const std::string SYM_MULTI_LOCATION = "MultiLocation";
inline const std::string SYM_VALUE = "Value";
inline const std::string SYM_EXE_ID = "ExeID";
inline const std::string SYM_MEMORY = "Memory";

// ---------------------------------------------------------------------------
// Expressions and evaluated values (all for plug-ins).
inline const std::string EXPR_LANGUAGE = "Language";
inline const std::string EXPR_EXPRESSION = "Expression";
inline const std::string EXPR_EXPR_PATH = "ExprPath";
inline const std::string EXPR_FORMAT_STRING = "FormatString";
inline const std::string EXPR_TYPE = "Type";
inline const std::string EXPR_CAN_ASSIGN = "CanAssign";
inline const std::string EXPR_NUMCHILDREN = "Numchildren";
inline const std::string EXPR_BITS = "Bits";
inline const std::string EXPR_SIZE = "Size";
inline const std::string EXPR_VAL = "Val";

inline const std::string VALUE_CLASS = "Class";
inline const std::string VALUE_TYPE = "Type";
inline const std::string VALUE_BIG_ENDIAN = "BigEndian";
inline const std::string VALUE_EXE_ID = "ExeID";
inline const std::string VALUE_VAL = "Val";

// ---------------------------------------------------------------------------
// Breakpoints. The run control builds one list of its own with the first
// six keys; the rest are for plug-ins.
inline const std::string BP_ID = "ID";
inline const std::string BP_LOCATION = "Location";
inline const std::string BP_CONTEXT_IDS = "ContextIds";
inline const std::string BP_ENABLED = "Enabled";
inline const std::string BP_BREAKPOINT_TYPE = "BreakpointType";
inline const std::string BP_ACCESS_MODE = "AccessMode";
inline const std::string BP_CONTEXT_NAMES = "ContextNames";
inline const std::string BP_STOP_GROUP = "StopGroup";
inline const std::string BP_EXEC_PATHS = "ExecPaths";
inline const std::string BP_SIZE = "Size";
inline const std::string BP_CONDITION = "Condition";
inline const std::string BP_IGNORE_COUNT = "IgnoreCount";
inline const std::string BP_IGNORE_TYPE = "IgnoreType";
inline const std::string BP_HIT_COUNT = "HitCount";
inline const std::string BP_FILE = "File";
inline const std::string BP_LINE = "Line";
inline const std::string BP_COLUMN = "Column";
inline const std::string BP_MASK = "Mask";
inline const std::string BP_MASK_VALUE = "MaskValue";
inline const std::string BP_TIME = "Time";
inline const std::string BP_TIME_SCALE = "TimeScale";
inline const std::string BP_TIME_UNITS = "TimeUnits";
inline const std::string BP_TEMPORARY = "Temporary";
inline const std::string BP_FUNCTION = "Function";
inline const std::string BP_FUNCTION_LINE = "FunctionLine";
inline const std::string BP_FUNCTION_COLUMN = "FunctionColumn";
inline const std::string BP_FUNCTION_START_ADDRESS = "FunctionStartAddress";
inline const std::string BP_FUNCTION_END_ADDRESS = "FunctionEndAddress";
inline const std::string BP_IS_TRUE = "IsTrue";
inline const std::string BP_HAS_CHANGED = "HasChanged";
inline const std::string BP_NON_INTRUSIVE_CONDITION = "NonIntrusiveCondition";
inline const std::string BP_CONDITION_INPUT1 = "ConditionInput1";
inline const std::string BP_CONDITION_INPUT2 = "ConditionInput2";
inline const std::string BP_ADDRESS = "Address";
inline const std::string BP_LOCATION_CONTEXT = "LocationContext";
inline const std::string BP_ERROR = "Error";
inline const std::string BP_INSTANCES = "Instances";
inline const std::string BP_HAS_CHILDREN = "HasChildren";
inline const std::string BP_FILE_LINE = "FileLine";

// Value words of breakpoint conditions and types.
inline const std::string BP_WORD_ALWAYS = "always";
inline const std::string BP_WORD_EQUALS = "equals";
inline const std::string BP_WORD_EQUALORGREATER = "equalorgreater";
inline const std::string BP_WORD_MULTIPLE = "multiple";
inline const std::string BP_TYPE_SOFTWARE = "Software";
inline const std::string BP_TYPE_HARDWARE = "Hardware";
inline const std::string BP_TYPE_AUTO = "Auto";

// ---------------------------------------------------------------------------
// Tools.
inline const std::string TOOL_NAME = "Name";
inline const std::string TOOL_STATE = "State";
inline const std::string TOOL_DEVICE_ID = "DeviceId";
inline const std::string TOOL_INTERFACE_NAME = "InterfaceName";
inline const std::string TOOL_INTERFACE_TYPE = "InterfaceType";
inline const std::string TOOL_INTERFACE_PROPERTIES = "InterfaceProperties";
inline const std::string TOOL_DEVICE_NAME = "DeviceName";
inline const std::string TOOL_BOARD_PROPERTIES = "BoardProperties";
inline const std::string TOOL_SUPPORTED_DEVICES = "SupportedDevices";

// Words for "State".
inline const std::string TOOL_STATE_IDLE = "Idle";
inline const std::string TOOL_STATE_READY = "Ready";
inline const std::string TOOL_STATE_BUSY = "Busy";

// Settings of a physical interface; they travel inside "InterfaceProperties".
inline const std::string IFSET_ISP_CLOCK = "IspClock";
inline const std::string IFSET_JTAG_PROG_CLOCK = "JtagProgClock";
inline const std::string IFSET_JTAG_DBG_CLOCK = "JtagDbgClock";
inline const std::string IFSET_JTAG_IN_CHAIN = "JtagInChain";
inline const std::string IFSET_JTAG_DEVICES_BEFORE = "JtagDevicesBefore";
inline const std::string IFSET_JTAG_DEVICES_AFTER = "JtagDevicesAfter";
inline const std::string IFSET_JTAG_INSTR_BITS_BEFORE = "JtagInstrBitsBefore";
inline const std::string IFSET_JTAG_INSTR_BITS_AFTER = "JtagInstrBitsAfter";
inline const std::string IFSET_JTAG_ENABLE_EXT_RESET_ON_START_SESSION =
    "JtagEnableExtResetOnStartSession";
inline const std::string IFSET_JTAG_DEVICE_IR_LENGTH = "JtagDeviceIrLength";
inline const std::string IFSET_JTAG_DEVICE_NAME = "JtagDeviceName";
inline const std::string IFSET_JTAG_DEVICE_ID = "JtagDeviceId";
inline const std::string IFSET_SLINE_MAX_BAUD = "SLineMaxBaud";
inline const std::string IFSET_BCL_CLOCK = "BclClock";
inline const std::string IFSET_OCL_CLOCK = "OclClock";
inline const std::string IFSET_DO_12V_OCL_ACTIVATION = "Do12VOclActivation";
inline const std::string IFSET_MONOLINK_CLOCK_DIV = "MonoLinkClockDiv";
inline const std::string IFSET_SWD_CLOCK = "SwdClock";

// Words for interface names and types; also the interface names of the
// device description ("monoLINK" is asked for by name).
inline const std::string INTERFACE_ISP = "ISP";
inline const std::string INTERFACE_PAR_HV = "ParHv";
inline const std::string INTERFACE_SER_HV = "SerHv";
inline const std::string INTERFACE_BCL = "BCL";
inline const std::string INTERFACE_JTAG = "JTAG";
inline const std::string INTERFACE_SLINE = "sLine";
inline const std::string INTERFACE_RWL = "RWL";
inline const std::string INTERFACE_SWD = "SWD";
inline const std::string INTERFACE_MONOLINK = "monoLINK";
inline const std::string INTERFACE_OCL = "OCL";
inline const std::string INTERFACE_USB_SERIAL = "USB-Serial";
inline const std::string INTERFACE_SERIAL = "Serial";
inline const std::string INTERFACE_USB = "Usb";
inline const std::string INTERFACE_COM = "Com";

// Keys of a connection description, and the connection type ids.
inline const std::string CONN_TYPE = "Type";
inline const std::string CONN_SERIAL_NUMBER = "SerialNumber";
inline const std::string CONN_PORT_NAME = "PortName";
inline const std::string CONN_USB_VENDOR_ID = "UsbVendorId";
inline const std::string CONN_USB_PRODUCT_ID = "UsbProductId";
inline const std::string CONN_DAP_PRODUCT = "DapProduct";
inline const std::string CONN_TYPE_JUNGOUSB = "com.velmora.tarndbg.connection.jungousb";
inline const std::string CONN_TYPE_LIBUSB = "com.velmora.tarndbg.connection.libusb";
inline const std::string CONN_TYPE_LIBUSB0 = "com.velmora.tarndbg.connection.libusb0";
inline const std::string CONN_TYPE_HID = "com.velmora.tarndbg.connection.hid";
inline const std::string CONN_TYPE_CMSIS_DAP = "com.velmora.tarndbg.connection.cmsis-dap";
inline const std::string CONN_TYPE_SEGGER = "com.velmora.tarndbg.connection.segger";
inline const std::string CONN_TYPE_SEGGER_IP = CONN_TYPE_SEGGER + ".ip";
inline const std::string CONN_TYPE_SERIALPORT = "com.velmora.tarndbg.connection.serialport";

// ---------------------------------------------------------------------------
// Message channels.
inline const std::string MSG_CONTEXT_NAME = "ContextName";
inline const std::string MSG_SEVERITY_THRESHOLD = "SeverityThreshold";
inline const std::string MSG_REPORTING_ACTIVE = "ReportingActive";

#endif
