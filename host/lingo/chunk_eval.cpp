// Chunk expressions in the interpreter: "char 2 of s", "the last word of line 3 of s",
// "the number of items in s", and the writes "put x into item 2 of s", "delete word 1 of s".
//
// A read walks from the outermost chunk in to the variable that holds the text, evaluating the
// positions first, then narrows a view of the text level by level: the text is never copied,
// only the chunk that comes out.
#include <algorithm>

#include "host/lingo/chunks.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

// The value of a variable where it lies; anything else is evaluated into `holder`. The
// reference is good until the next evaluation.
const Value& Interpreter::evalRef(Expr& e, Value& holder) {
  if (e.kind == ExprKind::Local) return stack_[fp_ + static_cast<size_t>(e.slot)];
  if (e.kind == ExprKind::Global) {
    if (e.slot < 0) {
      auto it = globalIndex_.find(e.name);
      if (it != globalIndex_.end()) e.slot = static_cast<int>(it->second);
    }
    if (e.slot >= 0) return globals_[static_cast<size_t>(e.slot)];
  }
  holder = eval(e);
  return holder;
}

std::string_view Interpreter::chunkSource(Expr& e, Value& holder, std::string& converted) {
  const Value& v = evalRef(e, holder);
  if (v.isString()) return v.string();
  converted = textOf(v);
  return converted;
}

Interpreter::ChunkLevel Interpreter::chunkLevel(Expr& e) {
  ChunkLevel level{e.chunk, 0, 0, e.last};
  if (!e.last) {
    level.from = toInt(eval(*e.kids[1]), "a chunk position");
    level.to = e.kids.size() > 2 ? toInt(eval(*e.kids[2]), "a chunk position") : level.from;
  }
  return level;
}

std::string_view Interpreter::chunkText(Expr& e, Value& holder, std::string& converted) {
  if (e.kind != ExprKind::Chunk) return chunkSource(e, holder, converted);
  ChunkLevel level = chunkLevel(e);  // before the text is looked at: evaluating may move it
  std::string_view text = chunkText(*e.kids[0], holder, converted);
  if (level.last) level.from = level.to = static_cast<int64_t>(countChunks(text, level.type, itemDelimiter_));
  Span span = findChunk(text, level.type, level.from, level.to, itemDelimiter_);
  if (!span.found) return {};
  return text.substr(span.begin, span.end - span.begin);
}

Value Interpreter::evalChunk(Expr& e) {
  Value holder;
  std::string converted;
  return Value(std::string(chunkText(e, holder, converted)));
}

Value Interpreter::evalChunkCount(Expr& e) {
  Value holder;
  std::string converted;
  std::string_view text = chunkText(*e.kids[0], holder, converted);
  return Value(static_cast<int32_t>(
      std::min<size_t>(countChunks(text, e.chunk, itemDelimiter_), INT32_MAX)));
}

// Writes level k of a nested chunk inside `text` (levels[0] is the one nearest the variable).
// `value` null: delete. A chunk that does not exist yet is made by padding, at every level.
std::string Interpreter::rewriteChunk(std::string_view text, const std::vector<ChunkLevel>& levels,
                                      size_t k, const std::string* value, PutMode mode) {
  const ChunkLevel& level = levels[k];
  int64_t from = level.from, to = level.to;
  if (level.last) {
    from = to = std::max<int64_t>(1, static_cast<int64_t>(countChunks(text, level.type, itemDelimiter_)));
  }
  if (k + 1 == levels.size()) {
    if (!value) return lingo::deleteChunk(text, level.type, from, to, itemDelimiter_);
    return putChunk(text, level.type, from, to, *value, mode, itemDelimiter_, limits_.maxTextBytes);
  }
  Span span = findChunk(text, level.type, from, to, itemDelimiter_);
  if (!span.found) {
    if (!value) return std::string(text);
    std::string inner = rewriteChunk({}, levels, k + 1, value, mode);
    return putChunk(text, level.type, from, to, inner, PutMode::Into, itemDelimiter_,
                    limits_.maxTextBytes);
  }
  std::string inner =
      rewriteChunk(text.substr(span.begin, span.end - span.begin), levels, k + 1, value, mode);
  std::string out;
  out.reserve(text.size() - (span.end - span.begin) + inner.size());
  out.append(text.substr(0, span.begin)).append(inner).append(text.substr(span.end));
  return out;
}

namespace {
Expr* chunkLevels(Expr& target, std::vector<Expr*>& chain) {
  Expr* p = &target;
  while (p->kind == ExprKind::Chunk) {
    chain.push_back(p);
    p = p->kids[0].get();
  }
  return p;
}
}  // namespace

void Interpreter::writeChunk(Expr& target, const Value& v, PutMode mode) {
  std::vector<Expr*> chain;
  Expr* base = chunkLevels(target, chain);
  std::vector<ChunkLevel> levels;
  levels.reserve(chain.size());
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) levels.push_back(chunkLevel(**it));
  std::string value = textOf(v);
  Value current = readTarget(*base);
  std::string out = rewriteChunk(current.isString() ? std::string_view(current.string())
                                                    : std::string_view(textOf(current)),
                                 levels, 0, &value, mode);
  checkText(out.size());
  assign(*base, Value(std::move(out)));
}

void Interpreter::deleteChunk(Expr& target) {
  std::vector<Expr*> chain;
  Expr* base = chunkLevels(target, chain);
  std::vector<ChunkLevel> levels;
  levels.reserve(chain.size());
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) levels.push_back(chunkLevel(**it));
  Value current = readTarget(*base);
  std::string converted = current.isString() ? std::string() : textOf(current);
  std::string_view text = current.isString() ? std::string_view(current.string()) : converted;
  assign(*base, Value(rewriteChunk(text, levels, 0, nullptr, PutMode::Into)));
}

}  // namespace tessel::lingo
