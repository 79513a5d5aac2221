#include "platform/io/PropertyListXMLTokenizerInternal.h"

namespace zon::plist {

using namespace std::string_view_literals;

XMLToken XMLTokenizer::next()
{
    if (pendingEnd_) {
        pendingEnd_ = false;
        const std::string_view name = open_.back();
        open_.pop_back();
        return {XMLToken::End, name, at_};
    }
    for (;;) {
        if (at_ >= document_.size()) {
            if (!open_.empty())
                return malformed(document_.size(), "Unexpected end of document inside an element");
            return {XMLToken::EndOfDocument, {}, at_};
        }
        const size_t start = at_;
        if (document_[at_] != '<') {
            const void* open = std::memchr(document_.data() + at_, '<', document_.size() - at_);
            at_ = open ? static_cast<size_t>(static_cast<const char*>(open) - document_.data()) : document_.size();
            return {XMLToken::Text, document_.substr(start, at_ - start), start};
        }
        // Start tags, the most common markup, need no further look.
        const char second = at_ + 1 < document_.size() ? document_[at_ + 1] : '\0';
        if (second != '/' && second != '?' && second != '!')
            return startTag(start);
        const std::string_view rest = document_.substr(at_);
        if (rest.starts_with("</"sv))
            return endTag(start);
        if (rest.starts_with("<?"sv)) {
            if ((at_ = after("?>"sv, at_ + 2)) == std::string_view::npos)
                return malformed(start, "Unterminated processing instruction");
        } else if (rest.starts_with("<!--"sv)) {
            if ((at_ = after("-->"sv, at_ + 4)) == std::string_view::npos)
                return malformed(start, "Unterminated comment");
        } else if (rest.starts_with("<![CDATA["sv)) {
            const size_t close = document_.find("]]>"sv, at_ + 9);
            if (close == std::string_view::npos)
                return malformed(start, "Unterminated CDATA section");
            at_ = close + 3;
            return {XMLToken::CData, document_.substr(start + 9, close - start - 9), start};
        } else if (rest.starts_with("<!DOCTYPE"sv) && open_.empty()) {
            if (!skipDoctype())
                return malformed(start, "Unterminated document type declaration");
        } else {
            return startTag(start);
        }
    }
}

// <name attribute="value" ...> or <name .../>
XMLToken XMLTokenizer::startTag(size_t open)
{
    ++at_;
    const std::string_view tag = name();
    if (tag.empty())
        return malformed(open, "Unrecognized tag");
    for (;;) {
        const size_t beforeSpace = at_;
        skipSpace();
        if (at_ >= document_.size())
            return malformed(open, "Unterminated start tag");
        if (document_[at_] == '>') {
            ++at_;
            break;
        }
        if (document_[at_] == '/') {
            if (at_ + 1 >= document_.size() || document_[at_ + 1] != '>')
                return malformed(at_, "Bad start tag");
            at_ += 2;
            pendingEnd_ = true;
            break;
        }
        if (at_ == beforeSpace || name().empty())
            return malformed(at_, "Bad attribute");
        skipSpace();
        if (at_ >= document_.size() || document_[at_] != '=')
            return malformed(at_, "Bad attribute");
        ++at_;
        skipSpace();
        if (at_ >= document_.size() || (document_[at_] != '"' && document_[at_] != '\''))
            return malformed(at_, "Bad attribute");
        const size_t close = document_.find(document_[at_], at_ + 1);
        if (close == std::string_view::npos || document_.substr(at_, close - at_).find('<') != std::string_view::npos)
            return malformed(at_, "Bad attribute value");
        at_ = close + 1;
    }
    open_.push_back(tag);
    return {XMLToken::Start, tag, open};
}

XMLToken XMLTokenizer::endTag(size_t open)
{
    at_ += 2;
    const std::string_view tag = name();
    skipSpace();
    if (at_ >= document_.size() || document_[at_] != '>')
        return malformed(open, "Bad end tag");
    ++at_;
    if (open_.empty() || open_.back() != tag)
        return malformed(open, "Start-end tags mismatch");
    open_.pop_back();
    return {XMLToken::End, tag, open};
}

// Skips a DOCTYPE with its quoted identifiers and internal subset, if any.
bool XMLTokenizer::skipDoctype()
{
    size_t subsetDepth = 0;
    for (at_ += 9; at_ < document_.size(); ++at_) {
        const char c = document_[at_];
        if (c == '"' || c == '\'') {
            if ((at_ = document_.find(c, at_ + 1)) == std::string_view::npos)
                return false;
        } else if (c == '<' && document_.substr(at_).starts_with("<!--"sv)) {
            if ((at_ = after("-->"sv, at_ + 4)) == std::string_view::npos)
                return false;
            --at_;
        } else if (c == '[') {
            ++subsetDepth;
        } else if (c == ']' && subsetDepth) {
            --subsetDepth;
        } else if (c == '>' && !subsetDepth) {
            ++at_;
            return true;
        }
    }
    return false;
}

} // namespace zon::plist
