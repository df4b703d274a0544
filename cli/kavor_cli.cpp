// kavor_cli.cpp - the `kavor` command: looks at a device's parameter files
// with no table, through libkavor's own calls, so that it names files,
// judges copies and writes files exactly as the library does.
//
// Subcommands: status, show, check, get, set, diff, convert; each has
// --help. Exit codes (docs/cli.md): 0 yes/done, 1 no (a fall-back, a
// problem, a difference, nothing at a path), 2 nothing usable or a failed
// write, 64 a bad command line. Options begin with "--"; after "--" every
// word is an operand, so no file name is ever read as an option.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <libxml/parser.h>

#include "kavor.h"
#include "kavor_cli.h"

namespace kvcli {

namespace {

struct Args {
    std::vector<std::string> pos;
    std::map<std::string, std::string> opt;
    bool has(const char *o) const { return opt.count(o) != 0; }
};

struct Command {
    const char *name;
    const char *usage;        // operands and options
    const char *help;         // what it does, after the usage line
    const char *flags;        // options without a value, " a b "
    const char *valued;       // options with a value
    size_t min_pos, max_pos;
    int (*run)(const Args &);
};

int fail(const char *cmd, const std::string &what, int code)
{
    fprintf(stderr, "kavor %s: %s\n", cmd, what.c_str());
    return code;
}

bool listed(const char *list, const std::string &word)
{
    return strstr(list, (" " + word + " ").c_str()) != nullptr;
}

// --name, --name value, --name=value; "--" ends the options.
int parse(const Command &c, int argc, char **argv, Args *a)
{
    bool options = true;
    for (int i = 0; i < argc; i++) {
        std::string w = argv[i];
        if (options && w == "--") {
            options = false;
        } else if (options && w.size() > 2 && w.compare(0, 2, "--") == 0) {
            std::string name = w.substr(2), value;
            size_t eq = name.find('=');
            if (eq != std::string::npos) {
                value = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
            if (listed(c.valued, name)) {
                if (eq == std::string::npos) {
                    if (i + 1 >= argc)
                        return fail(c.name, "--" + name + " needs a value", kUsage);
                    value = argv[++i];
                }
            } else if (!listed(c.flags, name) || eq != std::string::npos) {
                return fail(c.name, "unknown option --" + name + " (see --help)", kUsage);
            }
            a->opt[name] = value;
        } else {
            a->pos.push_back(w);
        }
    }
    if (a->has("help"))
        return kOk;
    if (a->pos.size() < c.min_pos || a->pos.size() > c.max_pos)
        return fail(c.name, std::string("usage: kavor ") + c.name + " " + c.usage, kUsage);
    return kOk;
}

// ---- files and copies ----------------------------------------------------------

struct Names {
    std::string file, backup, root;
};

bool exists(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

// The names of FILE as the application registers it: --plain or --gzip, else
// the suffix (".gz" gzip, ".xml"/".xml.bak" plain), else the form of which a
// copy exists (gzip when both or neither do).
bool names_of(const std::string &arg, const Args &a, Names *n)
{
    char f[512], b[512], r[512];
    auto get = [&](int32_t ugz) {
        if (kavor_file_names(arg.c_str(), ugz, f, b, r, sizeof f) != 0)
            return false;
        *n = Names{f, b, r};
        return true;
    };
    auto ends = [&](const char *s) {
        size_t l = strlen(s);
        return arg.size() >= l && arg.compare(arg.size() - l, l, s) == 0;
    };
    if (a.has("plain") || a.has("gzip"))
        return get(a.has("plain") ? 1 : 0);
    if (ends(".gz"))
        return get(0);
    if (ends(".xml") || ends(".xml.bak"))
        return get(1);
    if (!get(0))
        return false;
    if (exists(n->file) || exists(n->backup))
        return true;
    Names gz = *n;
    if (get(1) && (exists(n->file) || exists(n->backup)))
        return true;
    *n = gz;
    return true;
}

// One copy on disk and what a load makes of it.
struct Copy {
    std::string path;
    int state = -1;           // kavor_copy_read: 0 complete, 1 recovered, -1 unusable
    xmlDocPtr doc = nullptr;
    Copy() = default;
    Copy(const Copy &) = delete;
    Copy &operator=(const Copy &) = delete;
    ~Copy() { xmlFreeDoc(doc); }
    void read(const std::string &p, const char *root)
    {
        path = p;
        state = kavor_copy_read(p.c_str(), root, &doc);
    }
};

const char *state_name(int state)
{
    return state == 0 ? "complete" : state == 1 ? "recovered" : "unusable";
}

// Reads the copy a load takes (the file name's when usable, else the
// backup's) into *c; false with a message when neither is usable.
bool taken_copy(const char *cmd, const Names &n, Copy *c)
{
    c->read(n.file, n.root.c_str());
    if (c->state < 0) {
        xmlFreeDoc(c->doc);
        c->doc = nullptr;
        c->read(n.backup, n.root.c_str());
    }
    if (c->state < 0)
        fail(cmd, n.file + ": no usable copy (see kavor status)", kTrouble);
    else if (c->path != n.file)
        fprintf(stderr, "kavor %s: %s unusable, using the backup %s\n", cmd, n.file.c_str(),
                c->path.c_str());
    return c->state >= 0;
}

// ---- status --------------------------------------------------------------------

// Why a copy is unusable, as far as a look from outside can tell.
std::string why_unusable(const std::string &path, const std::string &root)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return "missing";
    if (st.st_size == 0)
        return "empty";
    Copy any;
    any.read(path, nullptr);
    if (any.state >= 0)
        return "root element " + std::string((const char *)xmlDocGetRootElement(any.doc)->name) +
               ", not " + root;
    return "not XML, cut before its root element, or with a document type declaration";
}

void print_copy(const char *label, const Copy &c, const Names &n)
{
    struct stat st;
    if (stat(c.path.c_str(), &st) != 0) {
        printf("%s: %s missing\n", label, c.path.c_str());
        return;
    }
    char when[32] = "?";
    struct tm tm;
    if (localtime_r(&st.st_mtime, &tm) != nullptr)
        strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &tm);
    unsigned char magic[2] = {0, 0};
    FILE *f = fopen(c.path.c_str(), "rb");
    if (f != nullptr) {
        if (fread(magic, 1, 2, f) != 2)
            magic[0] = 0;
        fclose(f);
    }
    printf("%s: %s present size=%lld mtime=%s form=%s state=%s", label, c.path.c_str(),
           (long long)st.st_size, when, magic[0] == 0x1f && magic[1] == 0x8b ? "gzip" : "plain",
           state_name(c.state));
    if (c.doc != nullptr) {
        xmlNodePtr root = xmlDocGetRootElement(c.doc);
        std::string nodes;
        for (xmlNodePtr k = root->children; k != nullptr; k = k->next)
            if (k->type == XML_ELEMENT_NODE)
                nodes += (nodes.empty() ? "" : ",") + std::string((const char *)k->name);
        printf(" root=%s nodes=%s", (const char *)root->name, nodes.empty() ? "-" : nodes.c_str());
    } else {
        printf(" why=\"%s\"", why_unusable(c.path, n.root).c_str());
    }
    printf("\n");
}

// One file: 0 the load takes the main file complete, 1 a recovered copy or
// the backup, 2 nothing.
int status_of(const std::string &arg, const Args &a)
{
    Names n;
    if (!names_of(arg, a, &n))
        return fail("status", arg + ": not a parameter file name", kUsage);
    Copy main, bak;
    main.read(n.file, n.root.c_str());
    bak.read(n.backup, n.root.c_str());
    const Copy *taken = main.state >= 0 ? &main : bak.state >= 0 ? &bak : nullptr;
    printf("file: %s\n", n.file.c_str());
    if (taken == nullptr) {
        printf("load: nothing\nwhy: neither the main file nor the backup is usable; a load "
               "fills nothing and the application keeps its defaults\n");
    } else {
        printf("load: %s %s\n", taken == &main ? "main" : "backup", state_name(taken->state));
        if (taken == &main && main.state == 0)
            printf("why: the main file is complete\n");
        else if (taken == &main)
            printf("why: the strict parser refuses the main file and the recovery parser reads "
                   "its root element: the load takes what it reads (possibly partial) and "
                   "doesn't try the backup\n");
        else
            printf("why: the main file is %s\n", why_unusable(main.path, n.root).c_str());
    }
    print_copy("main", main, n);
    print_copy("backup", bak, n);
    printf("\n");
    return taken == nullptr ? kTrouble : (taken == &main && main.state == 0) ? kOk : kNo;
}

int run_status(const Args &a)
{
    int worst = kOk;
    for (const std::string &f : a.pos) {
        int rc = status_of(f, a);
        if (rc > worst)
            worst = rc;
    }
    return worst;
}

// ---- show, check, get, diff ---------------------------------------------------

// Drops the blank text between elements, so that the dump indents.
void drop_blanks(xmlNodePtr e)
{
    bool elements = false;
    for (xmlNodePtr c = e->children; c != nullptr; c = c->next)
        elements |= c->type == XML_ELEMENT_NODE;
    for (xmlNodePtr c = e->children, next; c != nullptr; c = next) {
        next = c->next;
        if (elements && c->type == XML_TEXT_NODE && xmlIsBlankNode(c)) {
            xmlUnlinkNode(c);
            xmlFreeNode(c);
        } else if (c->type == XML_ELEMENT_NODE) {
            drop_blanks(c);
        }
    }
}

int run_show(const Args &a)
{
    Names n;
    if (!names_of(a.pos[0], a, &n))
        return fail("show", a.pos[0] + ": not a parameter file name", kUsage);
    Copy c;
    if (a.has("backup")) {
        c.read(n.backup, n.root.c_str());
        if (c.state < 0)
            return fail("show", n.backup + ": unusable (see kavor status)", kTrouble);
    } else if (!taken_copy("show", n, &c)) {
        return kTrouble;
    }
    if (c.state == 1)
        fprintf(stderr, "kavor show: %s is recovered: possibly partial\n", c.path.c_str());
    xmlNodePtr root = xmlDocGetRootElement(c.doc);
    drop_blanks(root);
    if (!a.has("node")) {
        xmlDocFormatDump(stdout, c.doc, 1);
        return c.state == 0 ? kOk : kNo;
    }
    for (xmlNodePtr k = root->children; k != nullptr; k = k->next) {
        if (k->type == XML_ELEMENT_NODE && a.opt.at("node") == (const char *)k->name) {
            xmlElemDump(stdout, c.doc, k);
            printf("\n");
            return c.state == 0 ? kOk : kNo;
        }
    }
    return fail("show", c.path + " has no node " + a.opt.at("node"), kNo);
}

void print_problem(void *ctx, int32_t line, const char *message)
{
    printf("%s:%d: %s\n", static_cast<const char *>(ctx), (int)line, message);
}

int run_check(const Args &a)
{
    if (!a.has("schema"))
        return fail("check", "--schema S.xsd is needed", kUsage);
    int32_t rc = kavor_validate(a.pos[0].c_str(), a.opt.at("schema").c_str(), print_problem,
                                const_cast<char *>(a.pos[0].c_str()));
    if (rc < 0)
        return fail("check", a.opt.at("schema") + ": no usable schema", kTrouble);
    return rc == 0 ? kOk : kNo;
}

int run_get(const Args &a)
{
    Names n;
    if (!names_of(a.pos[0], a, &n))
        return fail("get", a.pos[0] + ": not a parameter file name", kUsage);
    Copy c;
    if (!taken_copy("get", n, &c))
        return kTrouble;
    std::string value, err;
    int rc = get_value(c.doc, a.pos[1], &value, &err);
    if (rc != kOk)
        return fail("get", err, rc);
    printf("%s\n", value.c_str());
    return kOk;
}

int run_diff(const Args &a)
{
    Copy x, y;
    x.read(a.pos[0], nullptr);
    y.read(a.pos[1], nullptr);
    for (const Copy *c : {&x, &y})
        if (c->state < 0)
            return fail("diff", c->path + ": unusable (" + why_unusable(c->path, "any") + ")", kTrouble);
    std::vector<std::string> lines;
    xmlNodePtr ra = xmlDocGetRootElement(x.doc), rb = xmlDocGetRootElement(y.doc);
    if (!xmlStrEqual(ra->name, rb->name))
        lines.push_back(std::string("/\t") + (const char *)ra->name + "\t" + (const char *)rb->name);
    diff_elements(ra, rb, "", &lines);
    for (const std::string &l : lines)
        printf("%s\n", l.c_str());
    return lines.empty() ? kOk : kNo;
}

// ---- set, convert: writes through the library's save road --------------------

// The copy a load takes, which must be complete: writing a recovered one
// would make what the recovery parser read the file's whole content.
bool complete_copy(const char *cmd, const Names &n, Copy *c)
{
    if (!taken_copy(cmd, n, c))
        return false;
    if (c->state != 0)
        fail(cmd, c->path + " is only recovered (see kavor status); nothing written", kTrouble);
    return c->state == 0;
}

int run_set(const Args &a)
{
    Names n;
    if (!names_of(a.pos[0], a, &n))
        return fail("set", a.pos[0] + ": not a parameter file name", kUsage);
    Copy c;
    if (!complete_copy("set", n, &c))
        return kTrouble;
    std::string err;
    int rc = set_value(c.doc, a.pos[1], a.pos[2], &err);
    if (rc != kOk)
        return fail("set", err, rc);
    if (a.has("schema")) {
        std::string where = n.file + " after the change";
        int32_t bad = kavor_validate_doc(c.doc, a.opt.at("schema").c_str(), print_problem,
                                         const_cast<char *>(where.c_str()));
        if (bad != 0)
            return bad < 0 ? fail("set", a.opt.at("schema") + ": no usable schema", kTrouble)
                           : fail("set", "refused by the schema; nothing written", kNo);
    }
    if (kavor_write_copy(n.file.c_str(), c.doc) != 0)
        return fail("set", n.file + ": the write failed; the last complete copy stays", kTrouble);
    return kOk;
}

int run_convert(const Args &a)
{
    if (a.has("plain") == a.has("gzip"))
        return fail("convert", "give one of --gzip and --plain", kUsage);
    Args from = a;
    from.opt.erase("plain");
    from.opt.erase("gzip");
    Names n, to;
    if (!names_of(a.pos[0], from, &n) || !names_of(a.pos[0], a, &to))
        return fail("convert", a.pos[0] + ": not a parameter file name", kUsage);
    if (n.file == to.file)
        return fail("convert", n.file + " is in that form already", kUsage);
    Copy c;
    if (!complete_copy("convert", n, &c))
        return kTrouble;
    if (kavor_write_copy(to.file.c_str(), c.doc) != 0)
        return fail("convert", to.file + ": the write failed", kTrouble);
    printf("%s\n", to.file.c_str());
    return kOk;
}

// ---- the table of subcommands -------------------------------------------------

const Command kCommands[] = {
    {"status", "FILE... [--plain|--gzip]",
     "Tells, for each parameter file, which copy the application's next load takes and why,\n"
     "decided by the library's own test of a copy, and for both copies (main file and\n"
     "backup): present, size, time, plain or gzip, complete/recovered/unusable, root and\n"
     "node names. FILE is the path as the application registers it (/data/net) or a name on\n"
     "disk (/data/net.xml.gz).\n"
     "Exit: 0 the main file is complete; 1 a load takes a recovered copy or the backup;\n"
     "2 nothing usable (the worst of all FILEs).\n",
     " help plain gzip ", " ", 1, 1000, run_status},
    {"show", "FILE [--backup] [--node NAME] [--plain|--gzip]",
     "Prints the document a load takes (or the backup's), indented, decompressed when gzip;\n"
     "with --node only that node's element.\n"
     "Exit: 0 shown; 1 the copy is recovered (possibly partial) or has no such node;\n"
     "2 no usable copy.\n",
     " help backup plain gzip ", " node ", 1, 1, run_show},
    {"check", "FILE --schema S.xsd",
     "Checks the document FILE (any name, plain or gzip) against the schema S.xsd (written by\n"
     "kavor_write_schema()) with libxml2's validator; prints each problem as FILE:LINE: text.\n"
     "Exit: 0 valid; 1 problems (the file would not load exactly); 2 no usable schema.\n",
     " help ", " schema ", 1, 1, run_check},
    {"get", "FILE PATH [--plain|--gzip]",
     "Prints the value at PATH in the copy a load takes. PATH is node/element/... with [i]\n"
     "for an array position (net_cfg/mac[2], dev/port[1]/speed); without [i] the last step\n"
     "prints every value of that name, one blank between.\n"
     "Exit: 0 printed; 1 nothing at PATH; 2 no usable copy; 64 a bad PATH.\n",
     " help plain gzip ", " ", 2, 2, run_get},
    {"set", "FILE PATH VALUE [--schema S.xsd] [--plain|--gzip]",
     "Puts VALUE at PATH (as for get; without [i] on a row of one element, its whole text)\n"
     "in the copy a load takes, which must be complete, checks the result against S.xsd when\n"
     "given, and writes the file by the library's save road: temporary name created new,\n"
     "the complete main file to the backup name, rename into place, sync. Only for a file of\n"
     "an application that isn't running: a running one writes over it at its next save.\n"
     "Exit: 0 written; 1 nothing at PATH or refused by the schema (nothing written); 2 no\n"
     "complete copy or a failed write (the last complete copy stays); 64 a bad PATH.\n",
     " help plain gzip ", " schema ", 3, 3, run_set},
    {"diff", "A B",
     "Prints the values that differ between the documents A and B (a main file and its\n"
     "backup, two devices' files): one line per path, PATH<TAB>A's value<TAB>B's value, a\n"
     "missing value as -, elements as (elements), \\ \\t \\n \\r and a value - escaped.\n"
     "Exit: 0 no difference; 1 differences; 2 A or B unusable.\n",
     " help ", " ", 2, 2, run_diff},
    {"convert", "FILE --gzip|--plain",
     "Writes the complete copy a load takes of FILE in the other form, beside it (net.xml to\n"
     "net.xml.gz or back), by the same save road as set, and prints the new file's name. FILE\n"
     "stays; register the application's file with the matching ugz. Only for an application\n"
     "that isn't running.\n"
     "Exit: 0 written; 2 no complete copy or a failed write; 64 FILE is in that form.\n",
     " help plain gzip ", " ", 1, 1, run_convert},
};

void usage(FILE *to)
{
    fprintf(to, "usage: kavor SUBCOMMAND [ARGS] (kavor SUBCOMMAND --help for each)\n\n");
    for (const Command &c : kCommands)
        fprintf(to, "  kavor %s %s\n", c.name, c.usage);
    fprintf(to, "\nExit codes: 0 yes/done, 1 no (fall-back, problems, differences, nothing at a "
                "path),\n2 nothing usable or a failed write, 64 a bad command line.\n");
}

}  // namespace

}  // namespace kvcli

int kavor_cli(int argc, char **argv)
{
    using namespace kvcli;
    if (argc < 2) {
        usage(stderr);
        return kUsage;
    }
    std::string sub = argv[1];
    if (sub == "--help" || sub == "-h" || sub == "help") {
        usage(stdout);
        return kOk;
    }
    for (const Command &c : kCommands) {
        if (sub != c.name)
            continue;
        Args a;
        int rc = parse(c, argc - 2, argv + 2, &a);
        if (rc != kOk)
            return rc;
        if (a.has("help")) {
            printf("usage: kavor %s %s\n\n%s", c.name, c.usage, c.help);
            return kOk;
        }
        return c.run(a);
    }
    fprintf(stderr, "kavor: unknown subcommand \"%s\"\n", sub.c_str());
    usage(stderr);
    return kUsage;
}
