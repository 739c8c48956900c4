// SPDX-License-Identifier: MIT
// draw: shapes and text from arguments, in their order, and from a JSON list, so that detections can be painted.
#include <algorithm>
#include <climits>
#include <cmath>
#include <iostream>
#include <numeric>

#include <nlohmann/json.hpp>

#include "image/numbers.h"
#include "picture.h"

namespace tool {
namespace {

struct Shape {
    enum Kind { circle, line, rect, quad, text } kind;
    std::vector<int> at;
    std::string words;
    int size = 0;
    uint32_t color = 0x00ff00;
    int thickness = 2;
};

struct ShapeKind {
    const char* name;
    Shape::Kind kind;
    size_t numbers;
    const char* form;
};

constexpr ShapeKind kKinds[] = {{"circle", Shape::circle, 3, "X,Y,RADIUS"},
                                {"line", Shape::line, 4, "X1,Y1,X2,Y2"},
                                {"rect", Shape::rect, 4, "LEFT,TOP,RIGHT,BOTTOM"},
                                {"quad", Shape::quad, 8, "X,Y of top-left, top-right, bottom-left, bottom-right"}};

struct DrawOptions {
    Input in;
    Output out;
    bool json = false;
    Shape next{};              ///< colour and thickness of the shapes that follow on the command line
    std::vector<Shape> shapes; ///< in the order given
};

int draw(tavi_image_t* img, const Shape& s) {
    const tavi_color_t color{static_cast<uint8_t>(s.color >> 16), static_cast<uint8_t>(s.color >> 8),
                             static_cast<uint8_t>(s.color)};
    const auto point = [&s](size_t i) { return tavi_point_t{s.at[2 * i], s.at[2 * i + 1], s.size}; };
    switch (s.kind) {
    case Shape::circle:
        return tavi_image_draw_circle(img, point(0), s.at[2], color, s.thickness);
    case Shape::line:
        return tavi_image_draw_line(img, point(0), point(1), color, s.thickness);
    case Shape::rect:
        return tavi_image_draw_rect(img, point(0), point(1), color, s.thickness);
    case Shape::quad:
        return tavi_image_draw_quad(img, {point(0), point(1), point(2), point(3)}, color, s.thickness);
    case Shape::text:
        break;
    }
    return tavi_image_draw_text(img, s.words.c_str(), point(0), color, s.thickness);
}

[[noreturn]] void refuse_item(size_t number, const std::string& why) {
    throw Error(kUsage, "item " + std::to_string(number) + " of the JSON list: " + why);
}

constexpr const char* kKeys[] = {"circle", "line", "rect",  "quad",      "text",
                                 "at",     "size", "color", "thickness", "label"};

// How many letters have to be put in, taken out or exchanged to make one word of the other.
size_t letters_between(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t exchanged = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({exchanged, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

void check_keys(const nlohmann::json& item, size_t number) {
    for (const auto& entry : item.items()) {
        const auto farther = [&entry](const char* a, const char* b) {
            return letters_between(entry.key(), a) < letters_between(entry.key(), b);
        };
        const char* const nearest = *std::min_element(std::begin(kKeys), std::end(kKeys), farther);
        if (entry.key() != nearest)
            refuse_item(number, "\"" + entry.key() + "\" is no key; the nearest is \"" + nearest + "\"");
    }
}

// Fractions are cut off; what no int holds would come out as another number.
int whole_number(const nlohmann::json& value, size_t number) {
    const double d = value.is_number() ? value.get<double>() : NAN;
    if (!(d > INT_MIN - 1.0 && d < INT_MAX + 1.0))
        refuse_item(number, value.dump() + " is no number from -2147483648 to 2147483647");
    return static_cast<int>(d);
}

std::vector<int> whole_numbers(const nlohmann::json& list, size_t number) {
    std::vector<int> numbers;
    if (!list.is_array())
        refuse_item(number, "a list of numbers is needed, not " + list.dump());
    for (const nlohmann::json& value : list)
        numbers.push_back(whole_number(value, number));
    return numbers;
}

// One object: {"rect": [l, t, r, b], "label": "...", "color": "rrggbb", "thickness": n}, or another kind of shape,
// or {"text": "...", "at": [x, y], "size": n}.
void add_item(const nlohmann::json& item, size_t number, std::vector<Shape>& shapes) {
    Shape s{};
    if (!item.is_object())
        refuse_item(number, "an object is needed");
    check_keys(item, number);
    if (item.contains("color"))
        s.color = parse_color("color", item["color"].get<std::string>());
    s.thickness = whole_number(item.value("thickness", nlohmann::json(s.thickness)), number);
    s.size = whole_number(item.value("size", nlohmann::json(s.size)), number);
    if (item.contains("text")) {
        s.kind = Shape::text;
        s.words = item["text"].get<std::string>();
        s.at = whole_numbers(item.at("at"), number);
        if (s.at.size() != 2)
            refuse_item(number, "\"at\" needs X,Y");
        shapes.push_back(s);
        return;
    }
    const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&item](const ShapeKind& k) { return item.contains(k.name); });
    if (kind == std::end(kKinds))
        refuse_item(number, "one of \"circle\", \"line\", \"rect\", \"quad\" and \"text\" is needed");
    s.kind = kind->kind;
    s.at = whole_numbers(item[kind->name], number);
    if (s.at.size() != kind->numbers)
        refuse_item(number, std::string("\"") + kind->name + "\" needs " + kind->form);
    shapes.push_back(s);
    if (item.contains("label")) {
        constexpr int kDefaultGlyph = 24;
        s.kind = Shape::text;
        s.words = item["label"].get<std::string>();
        const double left = s.at[0], top = s.at[1], above = top - (s.size ? s.size : kDefaultGlyph) - 4;
        if (above >= 0)
            s.at = {s.at[0], tavi::to_int(above)};
        else
            s.at = {tavi::to_int(left + 4), tavi::to_int(top + 4)}; // inside when there is no room above
        shapes.push_back(s);
    }
}

void add_json(std::vector<Shape>& shapes) {
    try {
        const nlohmann::json list = nlohmann::json::parse(std::cin);
        if (!list.is_array())
            throw Error(kUsage, "standard input: a JSON list of shapes is needed");
        for (size_t i = 0; i < list.size(); ++i)
            add_item(list[i], i + 1, shapes);
    } catch (const nlohmann::json::exception& e) {
        throw Error(kUsage, std::string("standard input: ") + e.what());
    }
}

void run_draw(DrawOptions& o) {
    if (o.json && o.in.path == "-")
        throw Error(kUsage, "standard input cannot be both the picture and the JSON list");
    if (o.json)
        add_json(o.shapes);
    Picture picture = load(o.in);
    for (const Shape& s : o.shapes)
        check(draw(picture.get(), s), kFailed, "cannot draw on " + picture.describe());
    save(picture, o.out);
}

// X,Y,SIZE,WORDS: the words may hold commas of their own.
Shape parse_text(const std::string& argument, Shape s) {
    size_t comma = std::string::npos;
    for (int i = 0; i < 3; ++i) {
        comma = argument.find(',', i == 0 ? 0 : comma + 1);
        if (comma == std::string::npos)
            throw CLI::ValidationError("--text", "\"" + argument + "\" is not allowed here: X,Y,SIZE,WORDS");
    }
    s.kind = Shape::text;
    s.at = parse_ints("--text", argument.substr(0, comma), 3, "X,Y,SIZE,WORDS");
    s.size = s.at[2];
    s.words = argument.substr(comma + 1);
    return s;
}

} // namespace

void add_draw(CLI::App& app, Run& run) {
    const auto o = std::make_shared<DrawOptions>();
    CLI::App* sub = app.add_subcommand("draw", "Draw shapes and text on a picture");
    add_input(sub, o->in);
    add_output(sub, o->out);
    // Each option takes effect where it stands, so that a colour holds for the shapes after it.
    const auto in_order = [sub](const std::string& name, const std::function<void(const std::string&)>& take,
                                const std::string& help) {
        sub->add_option_function<std::string>(name, take, help)
            ->trigger_on_parse()
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    };
    in_order(
        "--color", [o](const std::string& t) { o->next.color = parse_color("--color", t); },
        "RRGGBB of the shapes after it (default 00ff00)");
    in_order(
        "--thickness",
        [o](const std::string& t) { o->next.thickness = parse_ints("--thickness", t, 1, "PIXELS")[0]; },
        "stroke width of the shapes after it (default 2); below 0 fills circles and rectangles");
    for (const ShapeKind& kind : kKinds) {
        const std::string name = std::string("--") + kind.name;
        in_order(
            name,
            [o, kind, name](const std::string& t) {
                Shape s = o->next;
                s.kind = kind.kind;
                s.at = parse_ints(name, t, kind.numbers, kind.form);
                o->shapes.push_back(s);
            },
            kind.form);
    }
    in_order(
        "--text", [o](const std::string& t) { o->shapes.push_back(parse_text(t, o->next)); },
        "X,Y,SIZE,WORDS: top-left corner, glyph height (0 = 24), UTF-8 text");
    sub->add_flag("--json", o->json, "read more shapes, a JSON list, from standard input");
    sub->footer("Examples:\n"
                "  tavi-image draw photo.jpg out.png --color ff0000 --rect 10,20,109,139 --text 12,22,0,face\n"
                "  echo '[{\"rect\":[10,20,109,139],\"label\":\"cat 0.93\",\"color\":\"ff0000\"},\n"
                "         {\"circle\":[50,60,3],\"thickness\":-1},{\"text\":\"hi\",\"at\":[5,5],\"size\":16}]' |\n"
                "      tavi-image draw photo.jpg out.png --json");
    sub->callback([o, &run] { run = [o] { run_draw(*o); }; });
}

} // namespace tool
