// The private extension module under the isodata package. It adds no rule of
// its own: it hands Python the command's option table, runs the command's
// checks, lifecycle and report on a list of words, and shows numpy buffers
// to GDAL as in-memory files without copying them.
//
//  1. run_command: parse the words with the command's parser and run them as
//     the command would, with the GIL released; the summary comes back as
//     text, progress and messages go line by line to a file descriptor the
//     caller reads (the run's child process writes there too).
//  2. write_text / unlink: GDAL's in-memory files, for the virtual rasters
//     that read arrays in place.
//  3. plugin_path: the plug-in beside the run library this module loaded.
//  4. working_copy_picks: the rows and columns of a raster that a run's
//     working copy holds, as GDAL's nearest-neighbour reduced read picks them.
// Python's headers name a member "slots", which Qt's headers would turn into
// a keyword: they come first.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <Command.h>
#include <OptionTable.h>
#include <Options.h>
#include <ReducedRead.h>
#include <Run.h>
#include <WorkingCopySize.h>

#include <cpl_vsi.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <streambuf>

namespace py = pybind11;

namespace {

// Writes each line to a file descriptor as soon as it ends, so that a line
// written by the forked child reaches the reader before the run returns.
class LineToFd : public std::streambuf {
public:
    explicit LineToFd(int fd) : fd_(fd) {}
    ~LineToFd() override { Flush(); }

protected:
    int_type overflow(int_type c) override {
        if (c == traits_type::eof()) return traits_type::not_eof(c);
        line_.push_back(static_cast<char>(c));
        if (c == '\n') Flush();
        return c;
    }
    int sync() override {
        Flush();
        return 0;
    }

private:
    void Flush() {
        size_t done = 0;
        while (done < line_.size()) {
            const ssize_t n = write(fd_, line_.data() + done, line_.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;  // the reader is gone; the run goes on without it
            done += static_cast<size_t>(n);
        }
        line_.clear();
    }
    int fd_;
    std::string line_;
};

// A run watches SIGINT, SIGTERM and SIGHUP for its length and supervises one
// child; runs started from several Python threads take turns.
std::mutex& RunTurn() {
    static std::mutex turn;
    return turn;
}

// (exit status, what the command printed on stdout). Usage errors come back
// as status 1 with the message on the descriptor, as the command prints it.
py::tuple RunCommand(const std::vector<std::string>& words, int messagesFd) {
    int status = 0;
    std::string out;
    {
        py::gil_scoped_release release;
        const std::lock_guard<std::mutex> turn(RunTurn());
        LineToFd buffer(messagesFd);
        std::ostream messages(&buffer);
        const isodata_cli::ParseResult parsed = isodata_cli::ParseArguments(words);
        if (parsed.status != isodata_cli::ParseStatus::Run) {
            messages << "isodata: " << (parsed.message.empty() ? "not a run" : parsed.message) << "\n";
            status = static_cast<int>(isodata_cli::ExitCode::BadRequest);
        } else {
            std::ostringstream summary;
            status = isodata_cli::RunCommand(parsed.options, summary, messages, false);
            out = summary.str();
        }
        messages.flush();
    }
    return py::make_tuple(status, out);
}

void WriteText(const std::string& name, const std::string& text) {
    VSILFILE* file = VSIFOpenL(name.c_str(), "wb");
    if (!file) throw std::runtime_error("cannot make the in-memory file '" + name + "'");
    const size_t written = VSIFWriteL(text.data(), 1, text.size(), file);
    VSIFCloseL(file);
    if (written != text.size()) throw std::runtime_error("cannot write the in-memory file '" + name + "'");
}

// The plug-in is installed (and built) beside the run library.
std::string PluginPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&isodata_run::GdalVersion), &info) == 0 || !info.dli_fname) return {};
    return (std::filesystem::path(info.dli_fname).parent_path() / "libisodata.so").string();
}

// The full-size rows and columns the working copy of a width x height input
// is made of, in order.
py::tuple WorkingCopyPicks(int width, int height) {
    const double factor = isodata::ReductionFactor(width, height);
    const int columns = isodata::ReducedSize(width, factor), rows = isodata::ReducedSize(height, factor);
    return py::make_tuple(isodata::NearestRows(0, height, height, rows),
                          isodata::NearestColumns(0, width, width, columns));
}

} // namespace

PYBIND11_MODULE(_isodata, m) {
    m.doc() = "The C++ side of the isodata package (private: use the isodata package).";
    m.def("options_json", &isodata_cli::OptionsJson, "The command's option table as JSON.");
    m.def("version", &isodata_cli::VersionText);
    m.def("gdal_version", &isodata_run::GdalVersion);
    m.def("plugin_path", &PluginPath);
    m.def("chart_library_path", &isodata_run::ChartLibraryPath);
    m.def("run_command", &RunCommand, py::arg("words"), py::arg("messages_fd"));
    m.def("write_text", &WriteText, py::arg("name"), py::arg("text"));
    m.def("working_copy_picks", &WorkingCopyPicks, py::arg("width"), py::arg("height"));
    m.def("unlink", [](const std::string& name) { VSIUnlink(name.c_str()); }, py::arg("name"));
}
