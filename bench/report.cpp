#include "report.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace bench {

namespace {

bool write_text(const std::string &path, const std::string &text) {
    std::ofstream f(path);
    f << text;
    return static_cast<bool>(f);
}

std::string print_json(cJSON *root) {
    char *s = cJSON_Print(root);
    std::string text = s != nullptr ? s : "";
    cJSON_free(s);
    cJSON_Delete(root);
    return text + "\n";
}

cJSON *metrics_object(const Metrics &m) {
    cJSON *o = cJSON_CreateObject();
    for (const auto &[k, v] : m)
        cJSON_AddNumberToObject(o, k.c_str(), v);
    return o;
}

}  // namespace

bool write_metrics(const std::string &path, const Metrics &m) {
    return write_text(path, print_json(metrics_object(m)));
}

bool read_metrics(const std::string &path, Metrics *m) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    cJSON *root = cJSON_Parse(ss.str().c_str());
    if (root == nullptr) return false;
    for (cJSON *it = root->child; it != nullptr; it = it->next) {
        if (cJSON_IsNumber(it)) (*m)[it->string] = it->valuedouble;
    }
    cJSON_Delete(root);
    return true;
}

void print_table(const Report &r) {
    constexpr size_t kWidth = 136;
    printf("\n%-10s %-56s %14s %-10s %-22s %s\n", "section", "measure", "value", "unit", "target",
           "");
    std::string last;
    for (const Row &row : r.rows) {
        if (row.section != last) {
            printf("%s\n", std::string(kWidth, '-').c_str());
            last = row.section;
        }
        std::string verdict = row.target.empty() ? "" : (row.pass ? "ok" : "MISSED");
        if (row.stretch >= 0) verdict += row.stretch ? ", stretch reached" : ", stretch not";
        printf("%-10s %-56s %14.3f %-10s %-22s %s\n", row.section.c_str(), row.what.c_str(),
               row.value, row.unit.c_str(), row.target.c_str(), verdict.c_str());
    }
    printf("%s\n", std::string(kWidth, '-').c_str());
    for (const auto &[k, v] : r.settings)
        printf("%s: %s\n", k.c_str(), v.c_str());
}

bool write_json(const std::string &path, const Report &r) {
    cJSON *root = cJSON_CreateObject();
    cJSON *settings = cJSON_AddObjectToObject(root, "settings");
    for (const auto &[k, v] : r.settings)
        cJSON_AddStringToObject(settings, k.c_str(), v.c_str());
    cJSON *rows = cJSON_AddArrayToObject(root, "results");
    for (const Row &row : r.rows) {
        cJSON *o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "section", row.section.c_str());
        cJSON_AddStringToObject(o, "measure", row.what.c_str());
        cJSON_AddNumberToObject(o, "value", row.value);
        cJSON_AddStringToObject(o, "unit", row.unit.c_str());
        if (!row.target.empty()) {
            cJSON_AddStringToObject(o, "target", row.target.c_str());
            cJSON_AddBoolToObject(o, "met", row.pass);
            if (row.stretch >= 0) cJSON_AddBoolToObject(o, "stretch_met", row.stretch == 1);
        }
        cJSON_AddItemToArray(rows, o);
    }
    cJSON *cases = cJSON_AddObjectToObject(root, "cases");
    for (const auto &[name, m] : r.cases)
        cJSON_AddItemToObject(cases, name.c_str(), metrics_object(m));
    return write_text(path, print_json(root));
}

}  // namespace bench
