// The parsed form of Lingo scripts. A script is parsed once; the interpreter walks these trees.
//
// Names are resolved while parsing: inside a handler a name is a local slot (a parameter or a
// variable the handler assigns), a global (declared with `global`) or a free name (a call of a
// handler without arguments). In top-level code, as in the message window, every variable is a
// global.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/lingo/chunks.h"
#include "host/value.h"

namespace tessel::lingo {

struct Handler;

enum class Op : uint8_t {
  Add,
  Sub,
  Mul,
  Div,
  Mod,
  Concat,
  ConcatSpace,
  Eq,
  Ne,
  Lt,
  Gt,
  Le,
  Ge,
  Contains,
  Starts,
  And,
  Or,
  Neg,
  Not,
};

enum class ExprKind : uint8_t {
  Literal,   // value
  List,      // kids: items
  PropList,  // kids: property, value, property, value, ...
  Local,     // slot
  Global,    // name; slot caches the global's index once known
  Name,      // free name in a handler: a call without arguments
  Unary,     // op, kids[0]
  Binary,    // op, kids[0], kids[1]
  Call,      // name, kids: arguments (for obj.name(args) the object is the first)
  Index,     // kids[0][kids[1]]
  Dot,       // kids[0].name
  The,       // the name
  XtraRef,   // xtra kids[0]; only meaningful as the argument of interface()
  Property,  // a property of the parent script's instance (the handler's first argument)
  ScriptRef,  // script kids[0]; only meaningful as the first argument of new()
  Chunk,     // chunk kids[1] (to kids[2]) of kids[0]; `last`: the last chunk, no kids[1]
  ChunkCount,  // the number of chunks in kids[0]
};

// What a call site resolved to, kept until the set of handlers changes.
struct CallCache {
  uint32_t generation = 0;  // 0: not resolved yet
  uint8_t kind = 0;         // see Interpreter::Target
  const void* target = nullptr;
  int external = -1;
};

struct Expr {
  ExprKind kind = ExprKind::Literal;
  Op op = Op::Add;
  int line = 0;
  int slot = -1;
  int height = 1;  // of the tree below this node; the parser bounds it
  // Global: a top-level name, which calls the handler of that name while no global of that
  // name exists (as the message window does).
  bool callIfUnset = false;
  // Chunk, ChunkCount: which chunks; Chunk: "the last word of" rather than a position.
  ChunkType chunk = ChunkType::Char;
  bool last = false;
  host::Value value;
  std::string name;      // lower-case
  std::string spelling;  // as written
  std::vector<std::unique_ptr<Expr>> kids;
  CallCache cache;
};
using ExprPtr = std::unique_ptr<Expr>;

enum class StmtKind : uint8_t {
  Expr,         // a call used as a command: exprs[0]
  Assign,       // target = exprs[0]
  Put,          // put exprs...
  PutInto,      // put exprs[0] into|after|before target (mode 0, 1, 2)
  If,           // exprs[i] guards blocks[i]; one more block is the else
  RepeatWhile,  // exprs[0], blocks[0]
  RepeatTo,     // target = exprs[0] (down) to exprs[1], blocks[0]; mode 1 = down
  RepeatIn,     // target in exprs[0], blocks[0]
  ExitRepeat,
  NextRepeat,
  Return,  // exprs[0] if any
  Exit,
  Case,    // exprs[0] subject; labels[i] select blocks[i]; otherwise is one more block
  Global,  // names
  Delete,  // delete target (a chunk)
};

struct Stmt;
using StmtPtr = std::unique_ptr<Stmt>;
using Block = std::vector<StmtPtr>;

struct Stmt {
  StmtKind kind = StmtKind::Expr;
  int line = 0;
  int mode = 0;
  ExprPtr target;
  std::vector<ExprPtr> exprs;
  std::vector<Block> blocks;
  std::vector<std::vector<ExprPtr>> labels;
  std::vector<std::string> names;
};

struct Handler {
  std::string name;      // lower-case
  std::string spelling;  // as written
  std::string source;    // the script it came from ("kiosk.ls", "-e 2"), for error messages
  int line = 0;
  int params = 0;
  int locals = 0;  // parameters included
  std::vector<std::string> localNames;
  Block body;
};

struct Program {
  std::string source;  // file name or "-e N"; empty in the interactive window
  std::vector<std::string> properties;  // "property" lines: a parent script's, as written
  std::vector<std::unique_ptr<Handler>> handlers;
  Block statements;  // top-level code, run in order
};

}  // namespace tessel::lingo
