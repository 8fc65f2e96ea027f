// Whole evaluations with operators on the shared fixture, on both
// profiles: arithmetic and its conversions, pointers and arrays, member
// access, assignments that reach the target, the format suffix, and the
// three evaluateExpressionAs... wrappers over a process's expression
// service.

#include "test_evaluation_support.h"

#include "libcommon/core/status.h"
#include "libcommon/imemorycontext.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <string>
#include <vector>

namespace {

class OperatorTest : public EvaluationFixtureTest {
protected:
    double real(const std::string& text) { return valueToDouble(eval(text), api); }
    int64_t I() const { return fx.intSize; }
};

TEST_P(OperatorTest, ArithmeticAtTheTargetsWidths) {
    EXPECT_EQ(number("counter * 2 + 1"), 11);
    EXPECT_EQ(number("counter / 2"), 2);
    EXPECT_EQ(number("counter % 3"), 2);
    EXPECT_EQ(number("-counter"), -5);
    EXPECT_EQ(number("~counter"), -6);
    EXPECT_EQ(number("sh * 2"), -4);
    EXPECT_EQ(number("lg * 10"), 1000000);
    EXPECT_EQ(number("ul + 1"), 0xDEADBEF0ll);
    EXPECT_EQ(number("ll >> 32"), 0x01020304);
    EXPECT_EQ(number("counter << 2 | 1"), 21);
    EXPECT_EQ(number("counter ^ 1"), 4);
    EXPECT_EQ(number("counter & 4"), 4);
    // Unsigned char promotes to unsigned int.
    EXPECT_EQ(number("uc + uc"), 400);
    EXPECT_EQ(getArithmeticSubtype(eval("uc + uc").type), IT_UINT);
    // Constants are longs, so with an unsigned int the sum is unsigned long.
    EXPECT_EQ(getArithmeticSubtype(eval("uc + 1").type), IT_ULONG);
    // A signed int of the target wraps at its own width.
    EXPECT_EQ(number("(int)0x7FFF + (int)1"), I() == 2 ? -32768 : 0x8000);
    EXPECT_DOUBLE_EQ(real("fl * 2"), 3.0);
    EXPECT_DOUBLE_EQ(real("db + 0.25"), 2.5);
    EXPECT_DOUBLE_EQ(real("counter / 2.0"), 2.5);
    EXPECT_EQ(failure("counter / 0"), "Illegal: Division by 0");
    EXPECT_EQ(failure("counter % 0"), "Illegal: Modulo 0");
}

TEST_P(OperatorTest, ComparisonsAndLogic) {
    EXPECT_EQ(number("counter == 5"), 1);
    EXPECT_EQ(number("counter != 5"), 0);
    EXPECT_EQ(number("counter <= 5"), 1);
    EXPECT_EQ(number("counter >= 6"), 0);
    EXPECT_EQ(number("counter < 6 && lg > 0"), 1);
    EXPECT_EQ(number("counter > 6 || lg < 0"), 0);
    EXPECT_EQ(number("!counter"), 0);
    EXPECT_EQ(number("-1 < 1u"), 0);
    EXPECT_EQ(number("counter > 3 ? lg : 0"), 100000);
    // Only the chosen branch of a conditional runs; both sides of || do.
    EXPECT_EQ(number("1 ? counter : 1/0"), 5);
    EXPECT_EQ(failure("1 || 1/0"), "Illegal: Division by 0");
    EXPECT_EQ(failure("!1.5"), "Expected an integral expression");
}

TEST_P(OperatorTest, PointersArraysAndMembers) {
    EXPECT_EQ(number("nums[2]"), 30);
    EXPECT_EQ(number("*ptr"), 5);
    EXPECT_EQ(number("ptr[0]"), 5);
    EXPECT_EQ(number("*(nums + 3)"), 40);
    EXPECT_EQ(number("*&counter"), 5);
    EXPECT_EQ(eval("&nums[1]").val, 0x160u + static_cast<uint64_t>(I()));
    EXPECT_EQ(eval("ptr + 1").val, 0x100u + static_cast<uint64_t>(I()));
    EXPECT_EQ(number("buf[1]"), 'e');
    EXPECT_EQ(number("node.value"), 42);
    EXPECT_EQ(number("node.next->next->next->value"), 42);
    EXPECT_EQ(number("flags.c"), -300);
    EXPECT_EQ(number("flags.a"), 5);
    EXPECT_EQ(number("flags.b"), 17);
    // Members of the anonymous struct are members of flags.
    EXPECT_EQ(number("flags.x"), 7);
    EXPECT_EQ(number("flags.y"), -8);
    EXPECT_EQ(failure("flags.z"), "No such field name <z> in struct : z");
    EXPECT_EQ(failure("&flags.a"), "cannot take address of a bitfield");
    EXPECT_EQ(failure("counter[1]"), "cannot index into a non pointer");

    // "pointer, count" views the memory as an array.
    int bits = 0;
    value view = evalExpression("ptr, 3", api, nullptr, &bits);
    EXPECT_TRUE(isArray(view.type));
    EXPECT_EQ(bits, 3 * 8 * I());
    EXPECT_EQ(failure("ptr, 1.5"), "Expected an integral expression");

    // The memory reads give pointers to unsigned data of their size.
    EXPECT_TRUE(isPointer(eval("BY 0x140").type));
    EXPECT_EQ(number("*BY 0x140"), 'h');
    EXPECT_EQ(number("*DW 0x108"), 100000);
    EXPECT_EQ(number("*WO 0x106"), 0xFFFE);
}

TEST_P(OperatorTest, AssignmentsReachTheTarget) {
    const size_t intSize = static_cast<size_t>(I());
    EXPECT_EQ(number("counter = 5; counter++; counter"), 6);
    EXPECT_EQ(fx.peekNumber(0x100, intSize), 6u);
    EXPECT_EQ(number("counter += 10"), 16);
    EXPECT_EQ(number("counter <<= 1"), 32);
    EXPECT_EQ(number("--counter"), 31);
    EXPECT_EQ(fx.peekNumber(0x100, intSize), 31u);
    // Converted to the left side's type.
    EXPECT_EQ(number("uc = 300"), 44);
    EXPECT_EQ(fx.peekNumber(0x105, 1), 44u);
    EXPECT_EQ(number("local = -11"), -11);
    EXPECT_EQ(number("nums[3] = nums[0] + 1; nums[3]"), 11);
}

TEST_P(OperatorTest, BitFieldAssignmentsKeepTheirNeighbours) {
    EXPECT_EQ(number("flags.b = 3"), 3);
    EXPECT_EQ(fx.peekNumber(0x130, 1), (3u << 3) | 5u);
    EXPECT_EQ(number("flags.a = 7"), 7);
    EXPECT_EQ(fx.peekNumber(0x130, 1), (3u << 3) | 7u);
    // Too wide a value keeps only the field's bits.
    EXPECT_EQ(number("flags.a = 9"), 1);
    EXPECT_EQ(number("flags.b"), 3);
    EXPECT_EQ(fx.peekNumber(0x131, 1), 0xA5u & 0xFF) << "the byte behind the span";
}

TEST_P(OperatorTest, NothingIsRolledBack) {
    EXPECT_EQ(failure("counter = 9; counter = 1/0"), "Illegal: Division by 0");
    EXPECT_EQ(fx.peekNumber(0x100, static_cast<size_t>(I())), 9u);
    // A syntax error stops everything before it runs.
    EXPECT_EQ(failure("counter = 1; )"), "Syntax error: parsing stopped at ).");
    EXPECT_EQ(fx.peekNumber(0x100, static_cast<size_t>(I())), 9u);
}

TEST_P(OperatorTest, FormatSuffixAndMemorySpace) {
    std::string format;
    value v = evalExpression("counter, hex", api, &format);
    EXPECT_EQ(v.val, 5u);
    EXPECT_EQ(format, "hex");

    // A space name rereads the same address in that space.
    std::vector<unsigned char> bytes(static_cast<size_t>(I()), 0);
    bytes[0] = 77;
    fx.poke("prog", 0x100, bytes);
    EXPECT_EQ(number("counter, prog"), 77);
    EXPECT_EQ(api->getFormatString(), "prog");
    EXPECT_EQ(number("counter, data"), 5);
}

INSTANTIATE_TEST_SUITE_P(Profiles, OperatorTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

TEST(BigEndianTarget, AssignmentsWriteTheMostSignificantByteFirst) {
    ExprFixture fx(ExprFixture::TARN32, true);
    auto api = apiOver(fx);
    evalExpression("counter = 0x01020304", api);
    EXPECT_EQ(fx.peek("data", 0x100, 4), (std::vector<unsigned char>{1, 2, 3, 4}));
    EXPECT_EQ(evalExpression("counter + 1", api).val, 0x01020305u);
    EXPECT_EQ(evalExpression("flags.b = 3; flags.a", api).val, 5u);
}

// ---------------------------------------------------------------------------
// The wrappers, over an expression service that evaluates with the engine
// as a plug-in would.

// Collects what reaches a Poco logger.
class CaptureChannel : public Poco::Channel {
public:
    void log(const Poco::Message& message) override { messages.push_back(message.getText()); }
    std::vector<std::string> messages;
};

class Frames : public IStackTraceService {
public:
    std::vector<boost::shared_ptr<IStackTraceContext>> getFrames(boost::shared_ptr<IProcessContext>,
                                                                 int) override {
        return frames;
    }
    std::vector<boost::shared_ptr<IStackTraceContext>> frames;
};

class Bytes : public IValueBuffer {
public:
    explicit Bytes(std::vector<unsigned char> bytes) : bytes(std::move(bytes)) {}
    void getBytes(std::vector<unsigned char>& out) override { out = bytes; }
    std::vector<unsigned char> bytes;
};

class Context : public IExpressionContext {
public:
    Context(boost::shared_ptr<SymbolAccessorApi> api, std::string text, int& disposed)
        : api(std::move(api)), text(std::move(text)), disposed(disposed) {}
    void dispose() override { ++disposed; }
    boost::shared_ptr<IValueBuffer> getValueBuffer() override {
        value v = evalExpression(text, api);
        std::vector<unsigned char> bytes;
        v.location->readContent(bytes);
        return boost::make_shared<Bytes>(bytes);
    }
    int64_t getValueAsInt64(Status&) override {
        value v = evalExpression(text, api);
        return static_cast<int64_t>(
            convertScalar(api, IT_S64, v.val, getArithmeticSubtype(v.type)));
    }
    uint64_t getAbsoluteDataAddress(Status&) override {
        return evalExpression(text, api).location->getAbsoluteAddress();
    }
    // Code of a 16-bit-int target counts words.
    bool isByteAddress() override {
        value v = evalExpression(text, api);
        return !(isFunction(v.type) && api->getCompilerInfo()->intBits == 16);
    }

    boost::shared_ptr<SymbolAccessorApi> api;
    std::string text;
    int& disposed;
};

class Service : public IExpressionService {
public:
    explicit Service(ExprFixture& fx) : fx(fx) {}
    boost::shared_ptr<IExpressionContext> createExpressionContext(
        Status&, boost::shared_ptr<IStackTraceContext> frame, const std::string& language,
        const std::string& expression) override {
        if (expression == "refused") throw "no context";
        languages.push_back(language);
        auto api = boost::make_shared<SymbolAccessorApi>(fx.symbolInformation, frame,
                                                         fx.compilerInfo, fx.types, fx.symbols);
        return boost::make_shared<Context>(api, expression, disposed);
    }
    ExprFixture& fx;
    std::vector<std::string> languages;
    int disposed = 0;
};

class WrapperTest : public ::testing::TestWithParam<ExprFixture::Profile> {
protected:
    WrapperTest() : fx(GetParam()) {
        frames = boost::make_shared<Frames>();
        frames->frames = {fx.frame, fx.outerFrame};
        service = boost::make_shared<Service>(fx);
        fx.process->stackTrace = frames;
        fx.process->expressions = service;
    }

    ExprFixture fx;
    boost::shared_ptr<Frames> frames;
    boost::shared_ptr<Service> service;
};

TEST_P(WrapperTest, ValuesOfAStoppedProcess) {
    Status status;
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "counter * 2"), 10);
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(evaluateExpressionAsAbsoluteDataAddress(status, fx.process, "nums[1]"),
              0x160 + fx.intSize);
    EXPECT_TRUE(status.isOk());
    const std::vector<unsigned char> bytes =
        evaluateExpressionAsRawByteArray(status, fx.process, "buf");
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 5), "hello");
    EXPECT_EQ(service->languages, (std::vector<std::string>{"C", "C", "C"}));
    EXPECT_EQ(service->disposed, 3);

    // Statements run in order and their writes reach the chip.
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "counter = 5; counter++; counter"), 6);
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(fx.peekNumber(0x100, static_cast<size_t>(fx.intSize)), 6u);
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "flags.b = 3; flags.a"), 5);
    EXPECT_EQ(fx.peekNumber(0x130, 1), (3u << 3) | 5u);
}

TEST_P(WrapperTest, AWordAddressOfSmallProgramMemoryIsDoubled) {
    Status status;
    const int64_t address = evaluateExpressionAsInt64(status, fx.process, "main");
    const bool small = fx.process->getMemory("prog")->getMemoryAddressSize() < 4;
    const bool words = fx.compilerInfo->intBits == 16;
    EXPECT_EQ(address, small && words ? 0xD0 : (words ? 0x68 : 0xD0));
    EXPECT_EQ(evaluateExpressionAsAbsoluteDataAddress(status, fx.process, "main"),
              words ? 0x68 : 0xD0);
}

TEST_P(WrapperTest, FailuresBecomeStatusCodes) {
    Poco::AutoPtr<CaptureChannel> log(new CaptureChannel);
    Poco::Logger::get("exp").setChannel(log);
    Status status;
    frames->frames.clear();
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "counter"), 0);
    EXPECT_EQ(status.getErrorCode(), ERR_OPERATION_FAILED);
    EXPECT_EQ(status.getMessage(), "Running");
    EXPECT_EQ(log->messages, (std::vector<std::string>{
                                 "Failed to get expression context for expression <counter>: "
                                 "Running"}));
    status.reset();
    EXPECT_EQ(evaluateExpressionAsAbsoluteDataAddress(status, fx.process, "counter"), 0);
    EXPECT_EQ(status.getErrorCode(), ERR_OPERATION_FAILED);
    EXPECT_EQ(status.getMessage(), "Running");
    status.reset();
    EXPECT_TRUE(evaluateExpressionAsRawByteArray(status, fx.process, "counter").empty());
    EXPECT_EQ(status.getMessage(), "Running");
    frames->frames = {fx.frame};

    status.reset();
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "counter / 0"), 0);
    EXPECT_EQ(status.getErrorCode(), ERR_EXPRESSION);
    EXPECT_EQ(status.getMessage(), "Failed to evaluate expression");

    status.reset();
    EXPECT_EQ(evaluateExpressionAsAbsoluteDataAddress(status, fx.process, "1 +"), 0);
    EXPECT_EQ(status.getErrorCode(), ERR_EXPRESSION);

    status.reset();
    EXPECT_EQ(evaluateExpressionAsInt64(status, fx.process, "refused"), 0);
    EXPECT_EQ(status.getErrorCode(), ERR_INVALID_CONTEXT);
    EXPECT_EQ(status.getMessage(),
              "Failed to get expression context while trying evaluating expression");

    status.reset();
    EXPECT_EQ(evaluateExpressionAsAbsoluteDataAddress(status, boost::shared_ptr<IProcessContext>(),
                                                      "counter"),
              0);
    EXPECT_EQ(status.getErrorCode(), ERR_INVALID_CONTEXT);
    EXPECT_EQ(status.getMessage(), "Invalid Process Context while evaluating expression");

    // Without a process the other two fail the same way as without a
    // context, and nothing crashes.
    status.reset();
    EXPECT_EQ(evaluateExpressionAsInt64(status, boost::shared_ptr<IProcessContext>(), "counter"),
              0);
    EXPECT_EQ(status.getErrorCode(), ERR_INVALID_CONTEXT);
    status.reset();
    EXPECT_TRUE(
        evaluateExpressionAsRawByteArray(status, boost::shared_ptr<IProcessContext>(), "counter")
            .empty());
    EXPECT_EQ(status.getErrorCode(), ERR_INVALID_CONTEXT);

    // The byte array keeps the status it had and gives nothing.
    status.reset();
    EXPECT_TRUE(evaluateExpressionAsRawByteArray(status, fx.process, "1 +").empty());
    EXPECT_TRUE(status.isOk());
    // Every context that was made was disposed of.
    EXPECT_EQ(service->disposed, 3);
    Poco::Logger::get("exp").setChannel(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Profiles, WrapperTest,
                         ::testing::Values(ExprFixture::TARN8, ExprFixture::TARN32), profileName);

}  // namespace
