/* pc_load_file reads a file in the form its name gives: YAML, JSON (.json) or JSON Lines (.jsonl),
 * as the scenario reader does. */
#include "planecheck/json.h"
#include "planecheck/loader.h"

#include <stdio.h>
#include <string.h>

#include "c_check.h"

static const char *dir;

static const char *write_file(const char *name, const char *text) {
    static char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, name);
    FILE *f = fopen(path, "w");
    if (!f) return path;
    fputs(text, f);
    fclose(f);
    return path;
}

/* The scenario's name, its step count and the first step's table, whatever the form. */
static void check_scenario(const char *name, const char *text) {
    pc_load_error error;
    memset(&error, 0, sizeof error);
    pc_document *document = pc_load_file(write_file(name, text), &error);
    CHECK(document != NULL);
    if (!document) {
        fprintf(stderr, "  %s: %s\n", name, error.text);
        return;
    }
    const JSON_Object *root = json_value_get_object(pc_document_root(document));
    CHECK(root && strcmp(json_value_get_string(json_object_get_value(root, "name")), "forms") == 0);
    const JSON_Array *steps = json_value_get_array(json_object_get_value(root, "steps"));
    CHECK(steps && json_array_get_count(steps) == 2);
    const JSON_Value *second = steps ? json_array_get_value(steps, 1) : NULL;
    CHECK(second && json_object_get_name(json_value_get_object(second), 0) &&
          strcmp(json_object_get_name(json_value_get_object(second), 0), "expect") == 0);
    CHECK(pc_json_line(second) == (strstr(name, ".yaml") ? 4u : 3u));
    pc_document_free(document);
}

int main(int argc, char **argv) {
    dir = argc > 1 ? argv[1] : ".";
    check_scenario("forms.yaml", "name: forms\nsteps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n  - expect: { mismatches: 0 }\n");
    check_scenario("forms.json", "{\"name\": \"forms\", \"steps\": [\n{\"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 1}]}},\n"
                                 "{\"expect\": {\"mismatches\": 0}}]}\n");
    /* two lines of flow mappings are not one YAML document: only a JSON Lines reading takes this */
    check_scenario("forms.jsonl", "{\"name\": \"forms\"}\n{\"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 1}]}}\n"
                                  "{\"expect\": {\"mismatches\": 0}}\n");

    /* a comment is YAML, not JSON: the .json name makes it an error at its line */
    pc_load_error error;
    memset(&error, 0, sizeof error);
    const char *commented = "{\"steps\": []}\n# a comment\n";
    pc_document *yaml = pc_load_file(write_file("commented.yaml", commented), &error);
    CHECK(yaml != NULL);
    pc_document_free(yaml);
    CHECK(pc_load_file(write_file("commented.json", commented), &error) == NULL);
    CHECK(strstr(error.text, "commented.json:2:") != NULL);

    /* an empty file is a null document in every form */
    const char *forms[] = {"empty.yaml", "empty.json", "empty.jsonl"};
    for (int i = 0; i < 3; ++i) {
        pc_document *empty = pc_load_file(write_file(forms[i], ""), &error);
        CHECK(empty && json_value_get_type(pc_document_root(empty)) == JSONNull);
        pc_document_free(empty);
    }
    if (failures) fprintf(stderr, "%d checks failed\n", failures);
    return failures ? 1 : 0;
}
