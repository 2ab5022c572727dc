// bpcheck reads the tree's Android.bp the way a platform build would, with Soong's own parser and
// property structs, so that a misspelt module type or property, a value of the wrong type, a file
// that is not there or a source list that no longer matches the CMake build fails here rather
// than in the first platform tree it is dropped into. Each finding is one line on stderr; the
// exit status is 1 when there is any.
//
//	bpcheck -root .                                    # the checks
//	bpcheck -root . -compile-commands out/device/compile_commands.json
//	bpcheck -root . -print-shared-libs                 # the library's shared_libs, one a line
package main

import (
	"bytes"
	"encoding/json"
	"flag"
	"fmt"
	"os"
	"path/filepath"
	"reflect"
	"regexp"
	"sort"
	"strings"

	"android/soong/android"
	"android/soong/cc"

	"github.com/google/blueprint"
	"github.com/google/blueprint/parser"
)

// The module types a vendor directory of native code uses. Only these are known: any other type
// name (a misspelling included) is an unrecognised module type, as in a platform build.
var moduleTypes = map[string]android.ModuleFactory{
	"cc_binary":          cc.BinaryFactory,
	"cc_library":         cc.LibraryFactory,
	"cc_library_headers": cc.LibraryHeaderFactory,
	"cc_library_shared":  cc.LibrarySharedFactory,
	"cc_library_static":  cc.LibraryStaticFactory,
	"cc_object":          cc.ObjectFactory,
	"cc_test":            cc.TestFactory,
}

type options struct {
	root            string
	library         string // the cc_library_shared that must build the CMake entity's sources
	cmakeSources    string // relative to root
	compileCommands string // CMake's compile_commands.json, or "" to skip the flags check
}

// A module as Soong unpacked it: its type, name and every property struct its factory registered.
type module struct {
	typ, name string
	props     []interface{}
}

func main() {
	var o options
	flag.StringVar(&o.root, "root", ".", "directory holding Android.bp")
	flag.StringVar(&o.library, "library", "libzok_rilproxy", "the shared library's module name")
	flag.StringVar(&o.cmakeSources, "cmake-sources", "cmake/entity_sources.cmake",
		"CMake file that sets ZOK_ENTITY_SOURCES, relative to -root")
	flag.StringVar(&o.compileCommands, "compile-commands", "",
		"compile_commands.json of a build whose entity sources must carry the module's flags")
	printLibs := flag.Bool("print-shared-libs", false, "print the library's shared_libs and exit")
	flag.Parse()

	modules, errs := load(o.root)
	if modules != nil && *printLibs {
		if lib := find(modules, "cc_library_shared", o.library); lib != nil {
			for _, name := range linkerProps(lib).Shared_libs {
				fmt.Println(name)
			}
			return
		}
		errs = append(errs, fmt.Errorf("no cc_library_shared %q", o.library))
	}
	if modules != nil && !*printLibs {
		errs = append(errs, check(o, modules)...)
	}
	for _, err := range errs {
		fmt.Fprintln(os.Stderr, "bpcheck: "+oneLine(err))
	}
	if len(errs) > 0 {
		os.Exit(1)
	}
}

func oneLine(err error) string { return strings.ReplaceAll(err.Error(), "\n", " ") }

// load parses Android.bp, insists it is as bpfmt would print it, and unpacks every module into
// Soong's property structs for its type.
func load(root string) ([]*module, []error) {
	path := filepath.Join(root, "Android.bp")
	text, err := os.ReadFile(path)
	if err != nil {
		return nil, []error{err}
	}
	file, errs := parser.Parse("Android.bp", bytes.NewReader(text), parser.NewScope(nil))
	if len(errs) > 0 {
		return nil, errs
	}
	// bpfmt is this parser's printer; what it would change is a formatting finding, and the
	// other checks still run.
	var findings []error
	if printed, err := parser.Print(file); err != nil {
		return nil, []error{err}
	} else if !bytes.Equal(printed, text) {
		findings = append(findings, fmt.Errorf("Android.bp: bpfmt would reformat it (bpfmt -d Android.bp)"))
	}

	modules := []*module{}
	ctx := blueprint.NewContext()
	for name, factory := range moduleTypes {
		name, factory := name, factory
		ctx.RegisterModuleType(name, func() (blueprint.Module, []interface{}) {
			m := factory()
			modules = append(modules, &module{typ: name, props: m.GetProperties()})
			return m, m.GetProperties()
		})
	}
	if _, errs := ctx.ParseFileList(root, []string{path}, nil); len(errs) > 0 {
		return nil, errs
	}
	for _, m := range modules {
		m.name = nameOf(m)
	}
	return modules, findings
}

func nameOf(m *module) string {
	for _, p := range m.props {
		if v := reflect.ValueOf(p).Elem(); v.Kind() == reflect.Struct {
			if f := v.FieldByName("Name"); f.IsValid() && f.Type() == reflect.TypeOf((*string)(nil)) &&
				!f.IsNil() {
				return f.Elem().String()
			}
		}
	}
	return ""
}

func find(modules []*module, typ, name string) *module {
	for _, m := range modules {
		if m.typ == typ && m.name == name {
			return m
		}
	}
	return nil
}

func compilerProps(m *module) *cc.BaseCompilerProperties {
	for _, p := range m.props {
		if c, ok := p.(*cc.BaseCompilerProperties); ok {
			return c
		}
	}
	return &cc.BaseCompilerProperties{}
}

func linkerProps(m *module) *cc.BaseLinkerProperties {
	for _, p := range m.props {
		if l, ok := p.(*cc.BaseLinkerProperties); ok {
			return l
		}
	}
	return &cc.BaseLinkerProperties{}
}

func check(o options, modules []*module) []error {
	var errs []error
	for _, m := range modules {
		for _, p := range m.props {
			errs = append(errs, checkPaths(o.root, m.name, reflect.ValueOf(p))...)
		}
	}
	lib := find(modules, "cc_library_shared", o.library)
	if lib == nil {
		return append(errs, fmt.Errorf("Android.bp: no cc_library_shared %q", o.library))
	}
	if linkerProps(lib).Version_script == nil {
		errs = append(errs, fmt.Errorf("%s: no version_script, so every symbol would be exported", lib.name))
	}
	srcs := compilerProps(lib).Srcs
	cmake, err := cmakeList(filepath.Join(o.root, o.cmakeSources), "ZOK_ENTITY_SOURCES")
	if err != nil {
		return append(errs, err)
	}
	if only := missingFrom(srcs, cmake); len(only) > 0 {
		errs = append(errs, fmt.Errorf("%s: srcs not in %s: %s", lib.name, o.cmakeSources, strings.Join(only, " ")))
	}
	if only := missingFrom(cmake, srcs); len(only) > 0 {
		errs = append(errs, fmt.Errorf("%s: %s sources not in srcs: %s", lib.name, o.cmakeSources, strings.Join(only, " ")))
	}
	if o.compileCommands != "" {
		errs = append(errs, checkFlags(o, lib)...)
	}
	return errs
}

// checkPaths walks a property struct and checks that every value of a property Soong treats as a
// source path (tagged android:"path": srcs, exclude_srcs, version_script, ...) names a file or,
// with a wildcard, at least one. A ":module" reference is refused: nothing here can follow it.
func checkPaths(root, module string, v reflect.Value) []error {
	var errs []error
	switch v.Kind() {
	case reflect.Ptr, reflect.Interface:
		if !v.IsNil() {
			errs = checkPaths(root, module, v.Elem())
		}
	case reflect.Struct:
		for i := 0; i < v.NumField(); i++ {
			field := v.Type().Field(i)
			if !field.IsExported() {
				continue
			}
			if !hasTag(field.Tag.Get("android"), "path") {
				errs = append(errs, checkPaths(root, module, v.Field(i))...)
				continue
			}
			for _, path := range stringsIn(v.Field(i)) {
				if err := pathExists(root, path); err != nil {
					errs = append(errs, fmt.Errorf("%s: %s %q: %v", module,
						strings.ToLower(field.Name), path, err))
				}
			}
		}
	}
	return errs
}

func hasTag(tag, want string) bool {
	for _, t := range strings.Split(tag, ",") {
		if t == want {
			return true
		}
	}
	return false
}

func stringsIn(v reflect.Value) []string {
	switch {
	case v.Kind() == reflect.Ptr && !v.IsNil() && v.Elem().Kind() == reflect.String:
		return []string{v.Elem().String()}
	case v.Kind() == reflect.Slice && v.Type().Elem().Kind() == reflect.String:
		return v.Interface().([]string)
	}
	return nil
}

func pathExists(root, path string) error {
	if strings.HasPrefix(path, ":") {
		return fmt.Errorf("names a module, which this check cannot follow")
	}
	if strings.ContainsAny(path, "*?[") {
		if matches, _ := filepath.Glob(filepath.Join(root, path)); len(matches) == 0 {
			return fmt.Errorf("matches no file")
		}
		return nil
	}
	if info, err := os.Stat(filepath.Join(root, path)); err != nil || info.IsDir() {
		return fmt.Errorf("no such file")
	}
	return nil
}

// cmakeList returns the words of `set(<variable> ...)` in a CMake file.
func cmakeList(path, variable string) ([]string, error) {
	text, err := os.ReadFile(path)
	if err != nil {
		return nil, err
	}
	re := regexp.MustCompile(`(?s)set\(\s*` + variable + `\s+([^)]*)\)`)
	match := re.FindSubmatch(text)
	if match == nil {
		return nil, fmt.Errorf("%s: no set(%s ...)", path, variable)
	}
	return strings.Fields(string(match[1])), nil
}

// missingFrom returns the words of a that b lacks, sorted.
func missingFrom(a, b []string) []string {
	in := map[string]bool{}
	for _, s := range b {
		in[s] = true
	}
	var out []string
	for _, s := range a {
		if !in[s] {
			out = append(out, s)
		}
	}
	sort.Strings(out)
	return out
}

// checkFlags reads a CMake compile database and checks that each of the library's sources was
// compiled, and with every cflag (and, being C++, every cppflag) the module gives a platform build.
func checkFlags(o options, lib *module) []error {
	text, err := os.ReadFile(o.compileCommands)
	if err != nil {
		return []error{err}
	}
	var entries []struct{ File, Command string }
	if err := json.Unmarshal(text, &entries); err != nil {
		return []error{fmt.Errorf("%s: %v", o.compileCommands, err)}
	}
	root, _ := filepath.Abs(o.root)
	commands := map[string]string{}
	for _, e := range entries {
		if rel, err := filepath.Rel(root, e.File); err == nil {
			commands[rel] = " " + e.Command + " "
		}
	}
	props := compilerProps(lib)
	flags := append(append([]string{}, props.Cflags...), props.Cppflags...)
	var errs []error
	for _, src := range props.Srcs {
		command, ok := commands[src]
		if !ok {
			errs = append(errs, fmt.Errorf("%s: %s is not compiled in %s", lib.name, src, o.compileCommands))
			continue
		}
		for _, flag := range flags {
			if !strings.Contains(command, " "+flag+" ") {
				errs = append(errs, fmt.Errorf("%s: %s is compiled without %s", lib.name, src, flag))
			}
		}
	}
	return errs
}
