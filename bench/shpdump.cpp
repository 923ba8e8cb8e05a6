// `quillet shp dump` against GDAL's ogr2ogr on the same layer in this run,
// each timed as a whole process as a user runs it, its output thrown away:
//
//   BM_DumpGeoJsonSeq    `shp dump --format geojsonseq`
//                        vs `ogr2ogr -f GeoJSONSeq`
//   BM_DumpGeoJson       `shp dump` (a FeatureCollection) vs `ogr2ogr -f GeoJSON`
//   BM_DumpBbox1Percent  `shp dump --format geojsonseq --bbox` through the
//                        layer's .sbn vs `ogr2ogr -f GeoJSONSeq -spat` (which
//                        reads the same .sbn), a window of 1 % of the extent
//
// Each row reports the better of two turns each: tool_s, ogr_s, vs_ogr
// (GDAL's time / ours: above 1, we are faster), tool_max_rss_mb, the dump's
// peak resident memory, which counts the pages of the mapped files it has
// read, and tool_anon_mb, the peak of its own memory, which must not grow
// with the layer. The layer: QUILLET_BENCH_FEATURES (default 1,000,000)
// polygons, squares of 5 points scattered over the extent, with a table of 10
// fields (numbers, texts, a date), made by this program through the library
// and the tool before anything is timed.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "shape/ShapeGeometry.h"
#include "shape/ShpFile.h"

namespace {

namespace fs = std::filesystem;
using namespace quillet;
using quillet::bench::Check;

constexpr double kExtent = 1000;

int32_t Features() {
    const char* text = std::getenv("QUILLET_BENCH_FEATURES");
    return text ? std::atoi(text) : 1'000'000;
}

struct ProcessRun {
    double seconds = 0;
    double maxRssMb = 0;  // mapped file pages included
    double anonMb = 0;    // the process's own memory (heap and stacks) at its peak
};

// Runs a shell command with its output thrown away; its time and its peak
// memory, the anonymous part sampled every few milliseconds.
ProcessRun Run(const std::string& command) {
    ProcessRun run;
    rusage usage{};
    int status = -1;
    long anonKb = 0;
    run.seconds = quillet::bench::Seconds([&] {
        pid_t child = fork();
        if (child == 0) {
            int null = open("/dev/null", O_WRONLY);
            if (null < 0 || dup2(null, 1) < 0) _exit(126);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            _exit(127);
        }
        Check(child > 0, "cannot run a command");
        while (wait4(child, &status, WNOHANG, &usage) == 0) {
            anonKb = std::max(anonKb, quillet::bench::AnonymousRssKb(child));
            usleep(5000);
        }
    });
    Check(WIFEXITED(status) && WEXITSTATUS(status) == 0, command.c_str());
    run.maxRssMb = static_cast<double>(usage.ru_maxrss) / 1024;
    run.anonMb = static_cast<double>(anonKb) / 1024;
    return run;
}

// A square of side 0.5 to 2 at a point of a fixed pseudo-random walk.
ShapeGeometry Square(int32_t n) {
    uint64_t state = static_cast<uint64_t>(n) * 6364136223846793005ull + 1442695040888963407ull;
    double x = static_cast<double>(state >> 40) / (1 << 24) * (kExtent - 2);
    double y = static_cast<double>((state >> 16) & 0xFFFFFF) / (1 << 24) * (kExtent - 2);
    double side = 0.5 + static_cast<double>(n % 16) / 10;
    ShapeGeometry g;
    g.type = ShpFile::qovaShapePolygon;
    g.parts = {0};
    g.points = {{x, y}, {x, y + side}, {x + side, y + side}, {x + side, y}, {x, y}};
    g.box[0] = x;
    g.box[1] = y;
    g.box[2] = x + side;
    g.box[3] = y + side;
    return g;
}

void WriteShapes(const fs::path& shp, int32_t features) {
    ShpFile file(shp.wstring().c_str());
    Check(file.Create(ShpFile::qovaShapePolygon), "cannot create the layer");
    for (int32_t n = 0; n < features; ++n) {
        auto bytes = Square(n).Encode();
        Check(file.InsertRecord(bytes.data(), static_cast<int32_t>(bytes.size())),
              "cannot write a shape");
    }
    file.SetExtent({0, 0, kExtent, kExtent}, false);
    Check(file.WriteHeader() && file.Close(), "cannot write the layer's header");
}

void WriteCsv(const fs::path& csv, int32_t features) {
    std::FILE* f = std::fopen(csv.c_str(), "w");
    Check(f != nullptr, "cannot write the CSV");
    std::fputs("ID,NAME,KIND,AREA,RATIO,COUNT,CODE,OWNER,SURVEYED,SCORE\n", f);
    const char* kinds[] = {"forest", "field", "water", "urban"};
    for (int32_t n = 0; n < features; ++n) {
        std::fprintf(f, "%d,parcel %d,%s,%.3f,%.6f,%d,C%05d,owner %d,20%02d-%02d-%02d,%d\n", n, n,
                     kinds[n % 4], (0.5 + n % 16 / 10.0) * (0.5 + n % 16 / 10.0), 1.0 / (n + 1),
                     n % 1000, n % 100000, n % 977, n % 24, n % 12 + 1, n % 28 + 1, n % 101);
    }
    Check(std::fclose(f) == 0, "cannot write the CSV");
}

// The layer, made once.
const fs::path& Layer() {
    static const fs::path shp = [] {
        fs::path dir = quillet::bench::WorkDir("shpdump");
        fs::path layer = dir / "parcels.shp";
        int32_t features = Features();
        WriteShapes(layer, features);
        WriteCsv(dir / "parcels.csv", features);
        std::string tool = QUILLET_TOOL_PATH;
        Run(tool + " dbf import-csv " + (dir / "parcels.csv").string() + " " +
            (dir / "parcels.dbf").string() +
            " --schema ID:N:9,NAME:C:20,KIND:C:8,AREA:N:12:3,RATIO:N:14:6,COUNT:N:6,CODE:C:6,"
            "OWNER:C:12,SURVEYED:D:8,SCORE:N:4");
        Run(tool + " sbn build " + layer.string());
        return layer;
    }();
    return shp;
}

void Compare(benchmark::State& state, const std::string& ours, const std::string& ogr) {
    ProcessRun tool;
    ProcessRun peer;
    std::string toolCommand =
        std::string(QUILLET_TOOL_PATH) + " shp dump " + Layer().string() + " " + ours;
    std::string peerCommand =
        "ogr2ogr " + ogr + " /vsistdout/ " + Layer().string() + " 2>/dev/null";
    for (auto _ : state) {
        // The better of two turns each, taken in turn, so that neither pays
        // alone for a cold cache or a burst of load on the shared machine.
        for (int turn = 0; turn < 2; ++turn) {
            ProcessRun ourRun = Run(toolCommand);
            ProcessRun peerRun = Run(peerCommand);
            if (turn == 0 || ourRun.seconds < tool.seconds) tool = ourRun;
            if (turn == 0 || peerRun.seconds < peer.seconds) peer = peerRun;
        }
    }
    state.counters["tool_s"] = tool.seconds;
    state.counters["ogr_s"] = peer.seconds;
    state.counters["vs_ogr"] = peer.seconds / tool.seconds;
    state.counters["tool_max_rss_mb"] = tool.maxRssMb;
    state.counters["tool_anon_mb"] = tool.anonMb;
    state.counters["features"] = Features();
}

// A window of 1 % of the extent's area near its middle.
std::string Window(const char* separator) {
    double low = kExtent * 0.45;
    double high = low + kExtent * 0.1;
    std::string text;
    for (double v : {low, low, high, high})
        text += (text.empty() ? "" : separator) + std::to_string(v);
    return text;
}

void BM_DumpGeoJsonSeq(benchmark::State& state) {
    Compare(state, "--format geojsonseq", "-f GeoJSONSeq");
}

void BM_DumpGeoJson(benchmark::State& state) {
    Compare(state, "--format geojson", "-f GeoJSON");
}

void BM_DumpBbox1Percent(benchmark::State& state) {
    Compare(state, "--format geojsonseq --bbox " + Window(","),
            "-f GeoJSONSeq -spat " + Window(" "));
}

}  // namespace

BENCHMARK(BM_DumpGeoJsonSeq)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_DumpGeoJson)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_DumpBbox1Percent)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(quillet::bench::WorkDir("shpdump"));
    return 0;
}
