/* The physical limit of a YAML-driven run: libyaml turning the file into events and nothing
 * else. `pc_libyaml_parse FILE` prints the number of events. */
#include <yaml.h>

#include <stdio.h>

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: pc_libyaml_parse FILE\n");
        return 2;
    }
    FILE *file = fopen(argv[1], "rb");
    if (!file) {
        perror(argv[1]);
        return 2;
    }
    yaml_parser_t parser;
    yaml_parser_initialize(&parser);
    yaml_parser_set_input_file(&parser, file);
    unsigned long events = 0;
    for (;;) {
        yaml_event_t event;
        if (!yaml_parser_parse(&parser, &event)) {
            fprintf(stderr, "%s:%lu:%lu: %s\n", argv[1], (unsigned long)parser.problem_mark.line + 1,
                    (unsigned long)parser.problem_mark.column + 1, parser.problem ? parser.problem : "malformed YAML");
            return 1;
        }
        int done = event.type == YAML_STREAM_END_EVENT;
        yaml_event_delete(&event);
        ++events;
        if (done) break;
    }
    yaml_parser_delete(&parser);
    fclose(file);
    printf("%lu events\n", events);
    return 0;
}
