// The faces of the reference: the help page, the message window's text, the man page.
#include <cctype>
#include <set>
#include <sstream>

#include "docs/tools/reference.h"

namespace tessel::reference {
namespace {

std::string escapeHtml(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string anchorOf(const std::string& group) {
  std::string a = "group-";
  for (char c : group) a += std::isalnum(static_cast<unsigned char>(c)) ? static_cast<char>(std::tolower(c)) : '-';
  return a;
}

// Inline Markdown: `code`, **strong**, *emphasis*, [text](url). Code spans that name a method
// link to its entry.
struct Inline {
  const std::set<std::string>* methods = nullptr;
  bool html = true;

  std::string operator()(const std::string& s) const {
    std::string out;
    size_t i = 0;
    while (i < s.size()) {
      char c = s[i];
      if (c == '`') {
        size_t end = s.find('`', i + 1);
        if (end != std::string::npos) {
          std::string code = s.substr(i + 1, end - i - 1);
          if (!html) {
            out += code;
          } else if (methods && methods->count(code)) {
            out += "<a href=\"#" + code + "\"><code>" + escapeHtml(code) + "</code></a>";
          } else {
            out += "<code>" + escapeHtml(code) + "</code>";
          }
          i = end + 1;
          continue;
        }
      } else if (c == '*' && s.compare(i, 2, "**") == 0) {
        size_t end = s.find("**", i + 2);
        if (end != std::string::npos && end > i + 2) {
          std::string inner = (*this)(s.substr(i + 2, end - i - 2));
          out += html ? "<strong>" + inner + "</strong>" : inner;
          i = end + 2;
          continue;
        }
      } else if (c == '*' && i + 1 < s.size() && s[i + 1] != ' ' && (i == 0 || s[i - 1] == ' ' || s[i - 1] == '(')) {
        size_t end = s.find('*', i + 1);
        if (end != std::string::npos && s[end - 1] != ' ') {
          std::string inner = (*this)(s.substr(i + 1, end - i - 1));
          out += html ? "<em>" + inner + "</em>" : inner;
          i = end + 1;
          continue;
        }
      } else if (c == '[') {
        size_t close = s.find("](", i);
        size_t end = close == std::string::npos ? close : s.find(')', close);
        if (end != std::string::npos && s.find('\n', i) > end) {
          std::string text = (*this)(s.substr(i + 1, close - i - 1));
          std::string url = s.substr(close + 2, end - close - 2);
          out += html ? "<a href=\"" + escapeHtml(url) + "\">" + text + "</a>" : text + " (" + url + ")";
          i = end + 1;
          continue;
        }
      }
      out += html ? escapeHtml(std::string(1, c)) : std::string(1, c);
      ++i;
    }
    return out;
  }
};

void htmlItems(std::ostream& o, const std::vector<Block::Item>& items, const Inline& in) {
  o << "<ul>";
  for (const auto& item : items) {
    o << "<li>" << in(item.text);
    if (!item.children.empty()) htmlItems(o, item.children, in);
    o << "</li>";
  }
  o << "</ul>\n";
}

void htmlCode(std::ostream& o, const std::string& code, bool lingo) {
  o << "<pre class=\"code\"><code>";
  std::stringstream ss(code);
  std::string line;
  bool first = true;
  while (std::getline(ss, line)) {
    if (!first) o << "\n";
    first = false;
    if (lingo && line.rfind("-- ", 0) == 0)
      o << "<span class=\"out\">" << escapeHtml(line) << "</span>";
    else
      o << escapeHtml(line);
  }
  o << "</code></pre>\n";
}

void htmlBlocks(std::ostream& o, const std::vector<Block>& blocks, const Inline& in) {
  for (const auto& b : blocks) {
    switch (b.kind) {
      case Block::Paragraph: o << "<p>" << in(b.text) << "</p>\n"; break;
      case Block::List: htmlItems(o, b.items, in); break;
      case Block::Code: htmlCode(o, b.text, b.language == "lingo"); break;
      case Block::Table:
        o << "<div class=\"table\"><table>";
        for (size_t r = 0; r < b.rows.size(); ++r) {
          o << "<tr>";
          for (const auto& cell : b.rows[r]) o << (r ? "<td>" : "<th>") << in(cell) << (r ? "</td>" : "</th>");
          o << "</tr>";
        }
        o << "</table></div>\n";
        break;
    }
  }
}

constexpr const char* kStyle = R"CSS(
:root{--ink:#1d2330;--soft:#5b6475;--line:#e3e6ec;--bg:#fbfbfd;--accent:#2f5fd0;--code:#f3f4f8;--out:#0b7a53}
*{box-sizing:border-box}
[hidden]{display:none!important}
body{margin:0;font:16px/1.55 system-ui,-apple-system,"Segoe UI","DejaVu Sans",sans-serif;color:var(--ink);background:var(--bg)}
a{color:var(--accent);text-decoration:none}a:hover{text-decoration:underline}
code,pre{font-family:"DejaVu Sans Mono",ui-monospace,Menlo,Consolas,monospace;font-size:.88em}
code{background:var(--code);padding:.05em .3em;border-radius:4px}
header.top{background:linear-gradient(120deg,#24324f,#2f5fd0);color:#fff;padding:1.4em 2em 1.2em}
header.top h1{margin:0;font-size:1.7em;font-weight:650;letter-spacing:.01em}
header.top h1 span{font-weight:400;opacity:.75}
header.top p{margin:.4em 0 0;max-width:58em;opacity:.92}
header.top code{background:rgba(255,255,255,.16);color:#fff}
.search{margin-top:1em;display:flex;gap:.8em;align-items:center}
.search input{width:min(32em,100%);font:inherit;padding:.5em .8em;border-radius:8px;border:0;outline:none;box-shadow:0 2px 8px rgba(0,0,0,.18)}
.search span{opacity:.85;font-size:.92em}
.layout{display:flex;align-items:flex-start;max-width:84em;margin:0 auto}
nav.toc{position:sticky;top:0;flex:0 0 15.5em;max-height:100vh;overflow:auto;padding:1.2em 1em 2em 1.5em;font-size:.9em;border-right:1px solid var(--line)}
nav.toc h2{font-size:.8em;text-transform:uppercase;letter-spacing:.08em;color:var(--soft);margin:0 0 .6em}
nav.toc h3{font-size:.95em;margin:1em 0 .3em}
nav.toc ul{list-style:none;margin:0;padding:0}
nav.toc li a{display:block;padding:.06em .4em;border-radius:4px;color:var(--ink);font-family:"DejaVu Sans Mono",monospace;font-size:.92em}
nav.toc li a:hover{background:#e8eefc;text-decoration:none}
main{flex:1;min-width:0;padding:.5em 2em 4em}
section.group>h2{font-size:1.35em;margin:1.6em 0 .2em;padding-bottom:.2em;border-bottom:2px solid var(--line)}
section.group>p.intro{color:var(--soft);margin-top:.2em}
article.method{background:#fff;border:1px solid var(--line);border-radius:10px;padding:1em 1.4em .6em;margin:1.1em 0;box-shadow:0 1px 2px rgba(20,30,60,.04)}
article.method h3{margin:0;font-size:1.2em;font-family:"DejaVu Sans Mono",monospace;font-weight:600}
article.method h3 a{color:var(--ink)}
article.method h3 .args{color:var(--soft);font-weight:400}
article.method h4{margin:1.1em 0 .3em;font-size:.78em;text-transform:uppercase;letter-spacing:.08em;color:var(--soft)}
p.tableline{margin:.3em 0 .6em}p.tableline code{background:none;padding:0;color:var(--soft);font-size:.8em}
p.missing{color:#a4461a}
article.method ul{padding-left:1.3em;margin:.3em 0}
article.method li{margin:.15em 0}
pre.code{background:#1f2533;color:#e6e9ef;padding:.8em 1em;border-radius:8px;overflow:auto;line-height:1.45}
pre.code code{background:none;padding:0;font-size:1em}
pre.code .out{color:#8fd8b4}
.needs{display:inline-block;font-size:.75em;color:var(--soft);border:1px solid var(--line);border-radius:20px;padding:0 .6em;margin-bottom:.3em}
.table{overflow:auto}table{border-collapse:collapse;font-size:.9em;margin:.5em 0}
th,td{border:1px solid var(--line);padding:.25em .6em;text-align:left;vertical-align:top}th{background:var(--code)}
#nomatch{padding:2em 0;color:var(--soft)}
@media (max-width:800px){.layout{display:block}nav.toc{position:static;max-height:none;border:0}}
)CSS";

constexpr const char* kScript = R"JS(
(function () {
  var box = document.getElementById('searchbox');
  var input = document.getElementById('q');
  var count = document.getElementById('count');
  var none = document.getElementById('nomatch');
  var methods = Array.prototype.slice.call(document.querySelectorAll('article.method'));
  var texts = methods.map(function (m) { return m.textContent.toLowerCase(); });
  var groups = Array.prototype.slice.call(document.querySelectorAll('section.group'));
  var tocGroups = Array.prototype.slice.call(document.querySelectorAll('nav.toc section'));
  var tocItems = {};
  Array.prototype.forEach.call(document.querySelectorAll('nav.toc li'), function (li) {
    tocItems[li.getAttribute('data-name')] = li;
  });
  box.hidden = false;
  function apply() {
    var words = input.value.toLowerCase().split(/\s+/).filter(Boolean);
    var shown = 0;
    methods.forEach(function (m, i) {
      var ok = words.every(function (w) { return texts[i].indexOf(w) >= 0; });
      m.hidden = !ok;
      if (tocItems[m.id]) tocItems[m.id].hidden = !ok;
      if (ok) shown++;
    });
    groups.forEach(function (g, i) {
      var any = g.querySelector('article.method:not([hidden])') !== null;
      g.hidden = !any;
      if (tocGroups[i]) tocGroups[i].hidden = !any;
    });
    count.textContent = words.length ? shown + ' of ' + methods.length + ' methods' : methods.length + ' methods';
    none.hidden = shown !== 0;
  }
  input.addEventListener('input', apply);
  document.addEventListener('keydown', function (e) {
    if (e.key === '/' && document.activeElement !== input) { e.preventDefault(); input.focus(); }
    if (e.key === 'Escape' && document.activeElement === input) { input.value = ''; apply(); }
  });
  var q = new URLSearchParams(window.location.search).get('q');
  if (q) input.value = q;
  apply();
})();
)JS";

std::string argsText(const TableMethod& m) {
  std::string s = "(";
  for (size_t i = 0; i < m.args.size(); ++i) s += (i ? ", " : "") + m.args[i];
  return s + ")";
}

}  // namespace

std::string plainInline(const std::string& text) {
  Inline in;
  in.html = false;
  return in(text);
}

std::string renderHtml(const MethodTable& table, const Reference& ref) {
  std::set<std::string> names;
  for (const auto& g : table.groups)
    for (const auto& m : g.methods) names.insert(m.name);
  Inline in;
  in.methods = &names;
  std::ostringstream o;
  o << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
       "<title>Tessel Help</title>\n<style>"
    << kStyle << "</style></head>\n<body>\n";
  o << "<header class=\"top\"><h1>Tessel Xtra <span>method reference</span></h1>\n"
       "<p>Tessel adds " << table.count() << " global functions to Lingo. Paths may be given in either style "
       "(<code>Disk:Folder:File</code> or <code>/folder/file</code>); a path that begins with <code>@</code> "
       "is relative to the movie's folder, and <code>tsReturnUnixNames(1)</code> makes the methods answer "
       "Unix paths. In the message window, <code>help \"tsCopyFile\"</code> shows an entry and "
       "<code>help \"copy\"</code> searches.</p>\n"
       "<div class=\"search\" id=\"searchbox\" hidden><input type=\"search\" id=\"q\" "
       "placeholder=\"Filter: a name or any word of the text  ( / )\" autocomplete=\"off\" "
       "aria-label=\"Filter the methods\"><span id=\"count\"></span></div>\n</header>\n";
  o << "<div class=\"layout\">\n<nav class=\"toc\" aria-label=\"Contents\"><h2>Contents</h2>\n";
  for (const auto& g : table.groups) {
    o << "<section><h3><a href=\"#" << anchorOf(g.name) << "\">" << escapeHtml(g.name) << "</a></h3><ul>\n";
    for (const auto& m : g.methods)
      o << "<li data-name=\"" << m.name << "\"><a href=\"#" << m.name << "\">" << m.name << "</a></li>\n";
    o << "</ul></section>\n";
  }
  o << "</nav>\n<main>\n";
  for (const auto& g : table.groups) {
    o << "<section class=\"group\" id=\"" << anchorOf(g.name) << "\"><h2>" << escapeHtml(g.name) << "</h2>\n";
    for (const auto& m : g.methods) {
      const Entry* e = ref.find(m.name);
      o << "<article class=\"method\" id=\"" << m.name << "\">\n<h3><a href=\"#" << m.name << "\">" << m.name
        << "</a><span class=\"args\">" << escapeHtml(argsText(m)) << "</span></h3>\n";
      o << "<p class=\"tableline\"><code>" << escapeHtml(m.line) << "</code></p>\n";
      if (!e) {
        o << "<p>" << escapeHtml(m.summary) << ".</p><p class=\"missing\">This entry is not written yet.</p>\n";
      } else {
        htmlBlocks(o, e->description, in);
        o << "<h4>Arguments</h4>\n";
        htmlBlocks(o, e->arguments, in);
        o << "<h4>Result</h4>\n";
        htmlBlocks(o, e->result, in);
        if (!e->onLinux.empty()) {
          o << "<h4>On Linux</h4>\n";
          htmlBlocks(o, e->onLinux, in);
        }
        o << "<h4>" << (e->examples.size() > 1 ? "Examples" : "Example") << "</h4>\n";
        for (const auto& ex : e->examples) {
          htmlBlocks(o, ex.prose, in);
          if (ex.desktop) o << "<span class=\"needs\">opens a window: needs a desktop</span>\n";
          htmlCode(o, ex.code.substr(0, ex.code.empty() ? 0 : ex.code.size() - 1), true);
          htmlBlocks(o, ex.after, in);
        }
      }
      o << "</article>\n";
    }
    o << "</section>\n";
  }
  o << "<p id=\"nomatch\" hidden>No method matches the filter.</p>\n</main>\n</div>\n<script>" << kScript
    << "</script>\n</body></html>\n";
  return o.str();
}

// ---- Text

namespace {

void wrap(std::string& out, const std::string& text, const std::string& first, const std::string& rest,
          int width) {
  std::stringstream ss(text);
  std::string word, line = first;
  bool empty = true;
  while (ss >> word) {
    if (!empty && static_cast<int>(line.size() + 1 + word.size()) > width) {
      out += line + "\n";
      line = rest;
      empty = true;
    }
    line += (empty ? "" : " ") + word;
    empty = false;
  }
  out += line + "\n";
}

void textItems(std::string& out, const std::vector<Block::Item>& items, const std::string& indent, int width) {
  for (const auto& item : items) {
    wrap(out, plainInline(item.text), indent + "- ", indent + "  ", width);
    textItems(out, item.children, indent + "  ", width);
  }
}

void textBlocks(std::string& out, const std::vector<Block>& blocks, const std::string& indent, int width) {
  for (size_t i = 0; i < blocks.size(); ++i) {
    const Block& b = blocks[i];
    if (i > 0 && b.kind == Block::Paragraph) out += "\n";
    switch (b.kind) {
      case Block::Paragraph: wrap(out, plainInline(b.text), indent, indent, width); break;
      case Block::List: textItems(out, b.items, indent, width); break;
      case Block::Code: {
        std::stringstream ss(b.text);
        std::string line;
        while (std::getline(ss, line)) out += indent + "  " + line + "\n";
        break;
      }
      case Block::Table:
        for (const auto& row : b.rows) {
          std::string r;
          for (const auto& c : row) r += (r.empty() ? "" : " | ") + plainInline(c);
          wrap(out, r, indent, indent + "    ", width);
        }
        break;
    }
  }
}

}  // namespace

std::string renderText(const TableMethod& m, const Entry* e, int width) {
  std::string out = signature(m) + "    (" + m.group + ")\n" + m.line + "\n\n";
  if (!e) {
    out += m.summary + ". (No entry yet.)\n";
    return out;
  }
  textBlocks(out, e->description, "", width);
  out += "\nArguments\n";
  textBlocks(out, e->arguments, "  ", width);
  out += "\nResult\n";
  textBlocks(out, e->result, "  ", width);
  if (!e->onLinux.empty()) {
    out += "\nOn Linux\n";
    textBlocks(out, e->onLinux, "  ", width);
  }
  for (const auto& ex : e->examples) {
    out += "\nExample" + std::string(ex.desktop ? " (opens a window)" : "") + "\n";
    if (!ex.prose.empty()) textBlocks(out, ex.prose, "  ", width);
    std::stringstream ss(ex.code);
    std::string line;
    while (std::getline(ss, line)) out += "    " + line + "\n";
    if (!ex.after.empty()) textBlocks(out, ex.after, "  ", width);
  }
  return out;
}

// ---- The man page

namespace {

std::string roff(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '\\') out += "\\e";
    else if (c == '-') out += "\\-";
    else out += c;
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
  return out;
}

}  // namespace

std::string renderManPage(const MethodTable& table, const Reference& ref, const std::string& usage,
                          const std::string& version) {
  std::ostringstream o;
  o << ".TH TESSEL 1 \"\" \"Tessel " << version << "\" \"User Commands\"\n.nh\n.ad l\n"
    << ".SH NAME\ntessel \\- the Lingo message window of the Tessel Xtra\n"
    << ".SH SYNOPSIS\n.B tessel\n[\\fIOPTIONS\\fR] [\\fIFILE\\fR] [\\fB\\-e\\fR \\fICODE\\fR]...\n"
    << ".SH DESCRIPTION\n"
       "\\fBtessel\\fR loads the Xtras of a folder (by default \\fIXtras\\fR beside the binary, where "
       "\\fITessel.so\\fR lies) through its own MOA host and runs Lingo that calls their methods "
       "exactly as a movie would: a script file, code given with \\fB\\-e\\fR, or lines typed at its "
       "prompt.\n"
       ".PP\nIn the message window, \\fBhelp\\fR lists the methods by group, "
       "\\fBhelp \"tsCopyFile\"\\fR shows one method's entry and \\fBhelp \"copy\"\\fR lists the "
       "methods whose name or text mention a word. The same reference, with examples, is "
       "\\fITessel Help.html\\fR beside the module.\n";
  // OPTIONS: the option lines of `tessel --help`, as it prints them.
  o << ".SH OPTIONS\n";
  std::stringstream ss(usage);
  std::string line, exitStatus;
  bool inOptions = false, open = false;
  while (std::getline(ss, line)) {
    if (line.rfind("Exit status:", 0) == 0) {
      exitStatus = line.substr(12);
      continue;
    }
    if (line.size() > 2 && line[0] == ' ' && line[1] == ' ' && line[2] != ' ') {
      inOptions = true;
      size_t gap = line.find("  ", 2);
      std::string term = line.substr(2, gap == std::string::npos ? std::string::npos : gap - 2);
      std::string text = gap == std::string::npos ? "" : line.substr(line.find_first_not_of(' ', gap));
      o << ".TP\n.B " << roff(term) << "\n" << roff(text) << "\n";
      open = true;
    } else if (inOptions && open && line.size() > 2 && line[0] == ' ') {
      std::string more = line.substr(line.find_first_not_of(' '));
      // A sentence of its own ("With neither, ...") starts a line of its own.
      if (std::isupper(static_cast<unsigned char>(more[0]))) o << ".br\n";
      o << roff(more) << "\n";
    } else if (line.empty()) {
      open = false;
    }
  }
  o << ".SH \"EXIT STATUS\"\n" << roff(exitStatus.empty() ? "" : exitStatus.substr(1)) << "\n"
    << ".PP\nA script run in CI therefore fails its job on a Lingo error; the methods' own failure "
       "values are ordinary results the script tests.\n";
  o << ".SH METHODS\nThe " << table.count() << " global methods of the Tessel Xtra, as its method table "
       "groups them (\\fBhelp \"NAME\"\\fR shows one in full):\n";
  for (const auto& g : table.groups) {
    o << ".SS " << roff(g.name) << "\n";
    for (const auto& m : g.methods) {
      const Entry* e = ref.find(m.name);
      std::string what = m.summary;
      if (e && !e->description.empty() && e->description[0].kind == Block::Paragraph) {
        std::string p = plainInline(e->description[0].text);
        size_t dot = p.find(". ");
        what = dot == std::string::npos ? p : p.substr(0, dot + 1);
      }
      o << ".TP\n.B " << roff(signature(m)) << "\n" << roff(what) << "\n";
    }
  }
  o << ".SH FILES\n.TP\n.I Xtras/Tessel.so\nthe Xtra, loaded from the folder beside \\fBtessel\\fR\n"
       ".TP\n.I Xtras/Tessel Help.html\nthe method reference, with an example for every method\n"
    << ".SH EXAMPLES\n.nf\ntessel examples/tour.ls\n"
       "tessel \\-e 'put tsFileExists(\"/etc/hostname\")'\n"
       "tessel \\-\\-movie ~/movie \\-e 'put tsFileList(\"@\", \"\")'\n.fi\n";
  return o.str();
}

}  // namespace tessel::reference
