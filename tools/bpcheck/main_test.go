package main

import (
	"os"
	"path/filepath"
	"strings"
	"testing"
)

const goodBp = `cc_library_shared {
    name: "libx",
    vendor: true,
    srcs: [
        "a.cpp",
        "b.cpp",
    ],
    cflags: ["-Werror"],
    cppflags: ["-fno-rtti"],
    version_script: "x.map",
}
`

// Each case makes one edit to a good Android.bp (or to the compile database) and names the
// finding it must produce; "" means no finding at all.
func TestFindings(t *testing.T) {
	cases := []struct{ name, from, to, want string }{
		{"good", "", "", ""},
		{"misspelt property", "srcs:", "src:", `unrecognized property "src"`},
		{"wrong type", "vendor: true", `vendor: "yes"`, `can't assign string value to bool property "vendor"`},
		{"misspelt module type", "cc_library_shared", "cc_libary_shared", `unrecognized module type "cc_libary_shared"`},
		{"missing source", `"b.cpp",`, "\"b.cpp\",\n        \"c.cpp\",", `srcs "c.cpp": no such file`},
		{"source list drift", `        "b.cpp",` + "\n", "", `sources not in srcs: b.cpp`},
		{"missing symbol map", "x.map", "y.map", `version_script "y.map": no such file`},
		{"no symbol map", `    version_script: "x.map",` + "\n", "", "no version_script"},
		{"not bpfmt's layout", "    name:", "  name:", "bpfmt would reformat"},
		{"flag not compiled", "COMMAND", "c++ -Werror=format -fno-rtti -c b.cpp", "b.cpp is compiled without -Werror"},
	}
	for _, c := range cases {
		t.Run(c.name, func(t *testing.T) {
			root := t.TempDir()
			bp, command := goodBp, "c++ -Werror -fno-rtti -c b.cpp"
			if c.from == "COMMAND" {
				command = c.to
			} else if c.from != "" {
				bp = strings.Replace(bp, c.from, c.to, 1)
			}
			abs, _ := filepath.Abs(root)
			files := map[string]string{
				"Android.bp": bp, "a.cpp": "", "b.cpp": "", "x.map": "",
				"cmake/entity_sources.cmake": "set(ZOK_ENTITY_SOURCES\n    a.cpp\n    b.cpp\n)\n",
				"cc.json": `[{"file": "` + abs + `/a.cpp", "command": "c++ -Werror -fno-rtti -c a.cpp"},
				            {"file": "` + abs + `/b.cpp", "command": "` + command + `"}]`,
			}
			for name, text := range files {
				os.MkdirAll(filepath.Dir(filepath.Join(root, name)), 0o755)
				if err := os.WriteFile(filepath.Join(root, name), []byte(text), 0o644); err != nil {
					t.Fatal(err)
				}
			}
			o := options{root, "libx", "cmake/entity_sources.cmake", filepath.Join(root, "cc.json")}
			modules, errs := load(root)
			if modules != nil {
				errs = append(errs, check(o, modules)...)
			}
			var got []string
			for _, err := range errs {
				got = append(got, oneLine(err))
			}
			all := strings.Join(got, "\n")
			if (c.want == "") != (len(got) == 0) || !strings.Contains(all, c.want) {
				t.Errorf("findings:\n%s\nwant one containing %q", all, c.want)
			}
		})
	}
}
