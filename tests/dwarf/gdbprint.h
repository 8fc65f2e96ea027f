#ifndef LIBCOMMON_TESTS_DWARF_GDBPRINT_H
#define LIBCOMMON_TESTS_DWARF_GDBPRINT_H

// GDB as the reference: gdb-multiarch evaluates expressions on an ELF file
// without running it, reading static data from the file just as the
// library does. One GDB run answers a whole list, through its Python API,
// so a failing expression does not disturb the others. Also times GDB's own
// evaluations, without its start-up, for the benchmark.

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

struct GdbAnswer {
    bool ok = false;
    std::string value;  // as GDB prints it
    std::string type;
    int size = 0;  // bytes of the value's type
    std::string error;
};

// The expressions of a list file: one a line, blank lines and lines that
// start with '#' skipped.
inline std::vector<std::string> readExpressionList(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::vector<std::string> list;
    std::string line;
    while (std::getline(in, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#') continue;
        list.push_back(line.substr(start));
    }
    return list;
}

namespace gdbprint_detail {

inline std::string pythonString(const std::string& s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\\' || c == '\'') out += '\\';
        out += c;
    }
    return out + "'";
}

// Runs GDB on elf with a Python script and gives its standard output.
inline std::string runGdb(const std::string& elf, const std::string& script) {
    // GDB reads a script as Python by its extension.
    char path[] = "/tmp/libcommon-gdb-XXXXXX.py";
    int fd = mkstemps(path, 3);
    if (fd < 0) throw std::runtime_error("cannot make a GDB script file");
    if (write(fd, script.data(), script.size()) != static_cast<ssize_t>(script.size())) {
        close(fd);
        unlink(path);
        throw std::runtime_error("cannot write the GDB script file");
    }
    close(fd);
    std::string command =
        "gdb-multiarch -batch -nx -x " + std::string(path) + " '" + elf + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    if (pipe) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
        pclose(pipe);
    }
    unlink(path);
    return output;
}

inline std::string pythonList(const std::vector<std::string>& expressions) {
    std::string list = "[";
    for (const std::string& e : expressions) list += pythonString(e) + ",\n";
    return list + "]";
}

}  // namespace gdbprint_detail

// GDB's answer for each expression, in order.
inline std::vector<GdbAnswer> askGdb(const std::string& elf,
                                     const std::vector<std::string>& expressions) {
    std::string script = "import gdb\nfor e in " + gdbprint_detail::pythonList(expressions) +
                         ":\n"
                         "    try:\n"
                         "        v = gdb.parse_and_eval(e)\n"
                         "        print('@@ok\\t%d\\t%s\\t%s' % (v.type.sizeof, v.type, "
                         "str(v).replace('\\n', ' ')))\n"
                         "    except Exception as x:\n"
                         "        print('@@error\\t%s' % str(x).replace('\\n', ' '))\n";
    std::istringstream out(gdbprint_detail::runGdb(elf, script));
    std::vector<GdbAnswer> answers;
    std::string line;
    while (std::getline(out, line)) {
        if (line.compare(0, 2, "@@") != 0) continue;
        GdbAnswer a;
        std::istringstream fields(line);
        std::string tag;
        std::getline(fields, tag, '\t');
        if (tag == "@@ok") {
            std::string size;
            std::getline(fields, size, '\t');
            std::getline(fields, a.type, '\t');
            std::getline(fields, a.value);
            a.size = std::stoi(size);
            a.ok = true;
        } else {
            std::getline(fields, a.error);
        }
        answers.push_back(a);
    }
    if (answers.size() != expressions.size())
        throw std::runtime_error("gdb-multiarch gave " + std::to_string(answers.size()) +
                                 " answers for " + std::to_string(expressions.size()) +
                                 " expressions on " + elf);
    return answers;
}

// GDB's own time for one evaluation and print of each expression, averaged
// over rounds passes of the whole list, in seconds; its start-up and the
// reading of the file are not counted.
inline double timeGdbPerExpression(const std::string& elf,
                                   const std::vector<std::string>& expressions, int rounds) {
    std::string script = "import gdb, time\nexprs = " + gdbprint_detail::pythonList(expressions) +
                         "\nfor e in exprs:\n"
                         "    try:\n"
                         "        str(gdb.parse_and_eval(e))\n"
                         "    except Exception:\n"
                         "        pass\n"
                         "t = time.perf_counter()\n"
                         "for r in range(" +
                         std::to_string(rounds) +
                         "):\n"
                         "    for e in exprs:\n"
                         "        try:\n"
                         "            str(gdb.parse_and_eval(e))\n"
                         "        except Exception:\n"
                         "            pass\n"
                         "print('@@time\\t%.9f' % ((time.perf_counter() - t) / (" +
                         std::to_string(rounds) + " * len(exprs))))\n";
    std::string out = gdbprint_detail::runGdb(elf, script);
    size_t at = out.find("@@time\t");
    if (at == std::string::npos) throw std::runtime_error("no time from gdb-multiarch");
    return std::stod(out.substr(at + 7));
}

// Wall time of a GDB run that opens elf and prints one expression, in
// seconds: its start-up, the reading of the file and its symbols.
inline double timeGdbOpen(const std::string& elf, const std::string& expression) {
    auto start = std::chrono::steady_clock::now();
    gdbprint_detail::runGdb(elf, "import gdb\nstr(gdb.parse_and_eval(" +
                                     gdbprint_detail::pythonString(expression) + "))\n");
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

#endif
