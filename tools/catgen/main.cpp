// catgen: validates the catalogue and writes the generated sources into the build tree.
//   catgen --objects objects.yaml --value-types value_types.yaml [--vocabulary vocabulary.yaml]
//          [--out DIR] [--stats]
#include "emit.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Leaves an unchanged file alone so that a catalogue edit rebuilds only what it touches.
bool write_if_changed(const fs::path &path, const std::string &text) {
    std::ifstream in(path, std::ios::binary);
    if (in) {
        std::stringstream old;
        old << in.rdbuf();
        if (old.str() == text) return true;
    }
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return bool(out);
}

int usage() {
    std::fputs("usage: catgen --objects FILE --value-types FILE [--vocabulary FILE] [--out DIR] [--stats]\n"
               "       (--out needs --vocabulary: the generated sources use its names)\n", stderr);
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    std::string objects, value_types, vocabulary, out;
    bool stats = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto next = [&]() -> std::string { return i + 1 < argc ? argv[++i] : ""; };
        if (a == "--objects") objects = next();
        else if (a == "--value-types") value_types = next();
        else if (a == "--vocabulary") vocabulary = next();
        else if (a == "--out") out = next();
        else if (a == "--stats") stats = true;
        else return usage();
    }
    if (objects.empty() || value_types.empty() || (!out.empty() && vocabulary.empty())) return usage();

    catgen::Catalogue cat;
    catgen::Diagnostics diag;
    if (!catgen::load_catalogue(objects, value_types, vocabulary, cat, diag)) {
        for (const auto &e : diag.errors) fmt::print(stderr, "{}\n", e);
        fmt::print(stderr, "catgen: {} problem{} in the catalogue\n", diag.errors.size(), diag.errors.size() == 1 ? "" : "s");
        return 1;
    }
    if (stats) pc::print_totals(catgen::totals(cat));
    if (out.empty()) return 0;

    fs::path dir(out);
    bool ok = write_if_changed(dir / "include/planecheck/dpa_api.h", catgen::api_header(cat)) &&
              write_if_changed(dir / "include/planecheck/exports.h", catgen::exports_header(cat)) &&
              write_if_changed(dir / "support_value_forms.cpp", catgen::support_value_forms(cat)) &&
              write_if_changed(dir / "simplane_layouts.cpp", catgen::simplane_layouts(cat)) &&
              write_if_changed(dir / "engine_catalogue.cpp", catgen::engine_catalogue(cat)) &&
              write_if_changed(dir / "include/planecheck/vocabulary.hpp", catgen::vocabulary_header(cat.vocabulary));
    std::string schema = catgen::scenario_schema(cat);
    ok = ok && write_if_changed(dir / "scenario.schema.json", schema) &&
         write_if_changed(dir / "scenario_schema.cpp", catgen::schema_source(schema));
    for (int s = 0; ok && s < catgen::kShards; ++s)
        ok = write_if_changed(dir / fmt::format("simplane_api_{}.cpp", s), catgen::simplane_shard(cat, s)) &&
             write_if_changed(dir / fmt::format("engine_types_{}.cpp", s), catgen::engine_shard(cat, s));
    if (!ok) {
        fmt::print(stderr, "catgen: cannot write into {}\n", out);
        return 1;
    }
    return 0;
}
