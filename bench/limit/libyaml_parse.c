/* The physical limit of a YAML-driven run: libyaml turning the files into events and nothing
 * else. `pc_libyaml_parse FILE...` prints the number of events of all the files. */
#include <yaml.h>

#include <stdio.h>

/* Adds the events of one file to *events; 0 when it cannot be read or parsed. */
static int parse_file(const char *path, unsigned long *events) {
    FILE *file = fopen(path, "rb");
    if (!file) {
        perror(path);
        return 0;
    }
    yaml_parser_t parser;
    yaml_parser_initialize(&parser);
    yaml_parser_set_input_file(&parser, file);
    int ok = 1;
    for (;;) {
        yaml_event_t event;
        if (!yaml_parser_parse(&parser, &event)) {
            fprintf(stderr, "%s:%lu:%lu: %s\n", path, (unsigned long)parser.problem_mark.line + 1,
                    (unsigned long)parser.problem_mark.column + 1, parser.problem ? parser.problem : "malformed YAML");
            ok = 0;
            break;
        }
        int done = event.type == YAML_STREAM_END_EVENT;
        yaml_event_delete(&event);
        ++*events;
        if (done) break;
    }
    yaml_parser_delete(&parser);
    fclose(file);
    return ok;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: pc_libyaml_parse FILE...\n");
        return 2;
    }
    unsigned long events = 0;
    for (int i = 1; i < argc; ++i)
        if (!parse_file(argv[i], &events)) return 1;
    printf("%lu events\n", events);
    return 0;
}
