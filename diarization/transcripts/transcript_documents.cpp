// SPDX-License-Identifier: Apache-2.0
// Words as documents: for office programs (Office Open XML, OpenDocument) and for corpora (TEI).
#include <map>

#include "formats.h"
#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"
#include "zip_archive.h"

namespace {

constexpr const char *XML = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// A paragraph of a document: whose, from when on, and what.
template <class Write>
std::string each_paragraph(const std::vector<spoken_word> &words, Write write) {
    std::string text;
    for (const run_of_words &p : paragraphs_of(words))
        text += write(escape_xml(shown_name(p.speaker)), clock_time_in_seconds(words[p.first].start),
                      escape_xml(joined(words, p.first, p.last)));
    return text;
}

}  // namespace

std::string write_docx(const std::vector<spoken_word> &words, const std::string &recording) {
    const auto run = [](const char *properties, const std::string &text) {
        return "<w:r><w:rPr>" + std::string(properties) + "</w:rPr><w:t xml:space=\"preserve\">" + text +
               "</w:t></w:r>";
    };
    const std::string body = each_paragraph(
        words, [&run](const std::string &name, const std::string &time, const std::string &text) {
            return "<w:p><w:pPr><w:spacing w:after=\"160\"/></w:pPr>" + run("<w:b/>", name) +
                   run("<w:color w:val=\"707070\"/>", "  " + time) + "<w:r><w:br/></w:r>" + run("", text) +
                   "</w:p>\n";
        });
    const std::string types = "application/vnd.openxmlformats-";
    const std::string schemas = "http://schemas.openxmlformats.org/";
    return zip_archive(
        {{"[Content_Types].xml",
          std::string(XML) + "<Types xmlns=\"" + schemas +
              "package/2006/content-types\"><Default Extension=\"rels\" ContentType=\"" + types +
              "package.relationships+xml\"/><Override PartName=\"/word/document.xml\" ContentType=\"" +
              types + "officedocument.wordprocessingml.document.main+xml\"/></Types>\n"},
         {"_rels/.rels", std::string(XML) + "<Relationships xmlns=\"" + schemas +
                             "package/2006/relationships\"><Relationship Id=\"rId1\" Type=\"" + schemas +
                             "officeDocument/2006/relationships/officeDocument\" "
                             "Target=\"word/document.xml\"/></Relationships>\n"},
         {"word/document.xml", std::string(XML) + "<w:document xmlns:w=\"" + schemas +
                                   "wordprocessingml/2006/main\"><w:body>\n<w:p>" +
                                   run("<w:b/><w:sz w:val=\"32\"/>", escape_xml(recording)) + "</w:p>\n" +
                                   body + "</w:body></w:document>\n"}});
}

std::string write_odt(const std::vector<spoken_word> &words, const std::string &recording) {
    const std::string type = "application/vnd.oasis.opendocument.text";
    const auto space = [](const char *prefix, const char *name) {
        return " xmlns:" + std::string(prefix) + "=\"urn:oasis:names:tc:opendocument:xmlns:" + name +
               ":1.0\"";
    };
    const std::string body =
        each_paragraph(words, [](const std::string &name, const std::string &time, const std::string &text) {
            return "<text:p text:style-name=\"turn\"><text:span text:style-name=\"name\">" + name +
                   "</text:span><text:span text:style-name=\"time\"><text:s text:c=\"2\"/>" + time +
                   "</text:span><text:line-break/>" + text + "</text:p>\n";
        });
    const auto style = [](const char *name, const char *family, const char *properties) {
        return "<style:style style:name=\"" + std::string(name) + "\" style:family=\"" + family + "\">" +
               properties + "</style:style>";
    };
    const auto entry = [](const char *name) {
        return "<manifest:file-entry manifest:full-path=\"" + std::string(name) +
               "\" manifest:media-type=\"text/xml\"/>";
    };
    return zip_archive(
        {{"mimetype", type},
         {"META-INF/manifest.xml",
          std::string(XML) + "<manifest:manifest" + space("manifest", "manifest") +
              " manifest:version=\"1.2\"><manifest:file-entry manifest:full-path=\"/\" "
              "manifest:media-type=\"" +
              type + "\"/>" + entry("content.xml") + entry("styles.xml") + "</manifest:manifest>\n"},
         {"styles.xml", std::string(XML) + "<office:document-styles" + space("office", "office") +
                            " office:version=\"1.2\"/>\n"},
         {"content.xml",
          std::string(XML) + "<office:document-content" + space("office", "office") + space("text", "text") +
              space("style", "style") + space("fo", "xsl-fo-compatible") +
              " office:version=\"1.2\"><office:automatic-styles>" +
              style("turn", "paragraph", "<style:paragraph-properties fo:margin-bottom=\"0.3cm\"/>") +
              style("name", "text", "<style:text-properties fo:font-weight=\"bold\"/>") +
              style("time", "text", "<style:text-properties fo:color=\"#707070\"/>") +
              "</office:automatic-styles><office:body><office:text>\n<text:h text:outline-level=\"1\">" +
              escape_xml(recording) + "</text:h>\n" + body +
              "</office:text></office:body></office:document-content>\n"}});
}

// Times are points of one timeline, to which words are tied by anchors (ISO 24624).
std::string write_tei(const std::vector<spoken_word> &words, const std::string &recording) {
    std::map<std::string, std::string> people;
    std::string persons, points, body;
    size_t num_points = 0;
    const auto point = [&](double seconds) {
        const std::string name = "T" + std::to_string(++num_points);
        points += line("    <when xml:id=\"%s\" interval=\"%.3f\" since=\"#T0\"/>\n", name.c_str(), seconds);
        return name;
    };
    for (const run_of_words &p : paragraphs_of(words)) {
        const auto [who, is_new] = people.try_emplace(p.speaker, "P" + std::to_string(people.size() + 1));
        if (is_new) {
            persons += "    <person xml:id=\"" + who->second + "\"><persName>" +
                       escape_xml(shown_name(p.speaker)) + "</persName></person>\n";
        }
        const std::string start = point(words[p.first].start);
        std::string text;
        for (size_t i = p.first; i < p.last; i++) {
            if (i > p.first) text += "<anchor synch=\"#" + point(words[i].start) + "\"/>";
            text += "<w>" + escape_xml(words[i].text) + "</w>";
        }
        body += "    <annotationBlock who=\"#" + who->second + "\" start=\"#" + start + "\" end=\"#" +
                point(words[p.last - 1].end) + "\"><u>" + text + "</u></annotationBlock>\n";
    }
    return std::string(XML) +
           "<TEI xmlns=\"http://www.tei-c.org/ns/1.0\">\n<teiHeader>\n  <fileDesc>\n    <titleStmt><title>" +
           escape_xml(recording) +
           "</title></titleStmt>\n    <publicationStmt><p>Transcript with speakers.</p></publicationStmt>\n"
           "    <sourceDesc><p>A recording.</p></sourceDesc>\n  </fileDesc>\n  <profileDesc><particDesc>\n" +
           persons +
           "  </particDesc></profileDesc>\n</teiHeader>\n<text>\n  <timeline unit=\"s\" origin=\"#T0\">\n"
           "    <when xml:id=\"T0\"/>\n" +
           points + "  </timeline>\n  <body>\n" + body + "  </body>\n</text>\n</TEI>\n";
}
