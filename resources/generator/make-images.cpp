// make-images: draws the packaged images (and their localized variants) as PNG files.
//
// The images are ours, drawn here with QPainter so that they can be regenerated and reviewed as
// code: `cmake --build build --target images` writes them into resources/ in the source tree.
#include <QColor>
#include <QCoreApplication>
#include <QDir>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include <cstdio>
#include <functional>

namespace {

const QColor kInk(40, 44, 52);
const QColor kPaper(250, 250, 247);
const QColor kSea(38, 110, 170);
const QColor kLand(96, 160, 88);
const QColor kAccent(230, 140, 40);

using Painter = std::function<void(QPainter&, const QSizeF&)>;

bool save(const QString& path, QSize size, const Painter& paint) {
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    paint(p, QSizeF(size));
    p.end();
    if (!image.save(path, "PNG")) {
        std::fprintf(stderr, "make-images: cannot write %s\n", qPrintable(path));
        return false;
    }
    return true;
}

// A small globe: sea disc, two land masses, a rim.
void globe(QPainter& p, QRectF r) {
    p.setPen(Qt::NoPen);
    p.setBrush(kSea);
    p.drawEllipse(r);
    p.setBrush(kLand);
    const qreal w = r.width(), h = r.height();
    p.drawEllipse(QRectF(r.x() + w * 0.18, r.y() + h * 0.22, w * 0.34, h * 0.26));
    p.drawEllipse(QRectF(r.x() + w * 0.50, r.y() + h * 0.52, w * 0.30, h * 0.28));
    p.setPen(QPen(kInk, qMax<qreal>(1, w / 24)));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(r);
}

void logo(QPainter& p, const QSizeF& s, const QString& word) {
    globe(p, QRectF(4, 4, s.height() - 8, s.height() - 8));
    QFont f;
    f.setPixelSize(int(s.height() * 0.38));
    f.setBold(true);
    p.setFont(f);
    p.setPen(kInk);
    p.drawText(QRectF(s.height(), 0, s.width() - s.height(), s.height()),
               Qt::AlignVCenter | Qt::AlignLeft, word);
}

void banner(QPainter& p, const QSizeF& s, const QString& greeting) {
    p.fillRect(QRectF(QPointF(0, 0), s), kSea);
    globe(p, QRectF(6, 6, s.height() - 12, s.height() - 12));
    QFont f;
    f.setPixelSize(int(s.height() * 0.4));
    p.setFont(f);
    p.setPen(kPaper);
    p.drawText(QRectF(s.height() + 4, 0, s.width(), s.height()), Qt::AlignVCenter, greeting);
}

enum CrossStyle { kThin, kThick, kInverse, kOpen };

void crosshair(QPainter& p, const QSizeF& s, CrossStyle style) {
    const QPointF c(s.width() / 2, s.height() / 2);
    const qreal arm = s.width() / 2 - 2;
    const qreal gap = style == kOpen ? s.width() / 6 : 0;
    const QColor ink = style == kInverse ? kPaper : kInk;
    if (style == kInverse) {
        p.setPen(QPen(kInk, 5));
    } else {
        p.setPen(QPen(kPaper, style == kThick ? 6 : 4));
    }
    for (int pass = 0; pass < 2; ++pass) {
        p.drawLine(QPointF(c.x() - arm, c.y()), QPointF(c.x() - gap, c.y()));
        p.drawLine(QPointF(c.x() + gap, c.y()), QPointF(c.x() + arm, c.y()));
        p.drawLine(QPointF(c.x(), c.y() - arm), QPointF(c.x(), c.y() - gap));
        p.drawLine(QPointF(c.x(), c.y() + gap), QPointF(c.x(), c.y() + arm));
        p.setPen(QPen(ink, style == kThick ? 3 : 1.5));
    }
}

void hand(QPainter& p, const QSizeF& s, bool grabbing) {
    const qreal u = s.width() / 16;
    p.setPen(QPen(kInk, u * 0.8));
    p.setBrush(kPaper);
    p.drawRoundedRect(QRectF(3 * u, 7 * u, 10 * u, 7 * u), 2 * u, 2 * u);
    const int fingers = 4;
    for (int i = 0; i < fingers; ++i) {
        const qreal len = grabbing ? 2 * u : 5 * u;
        p.drawRoundedRect(QRectF((3.3 + i * 2.4) * u, 7 * u - len, 2 * u, len + u), u, u);
    }
    if (!grabbing)
        p.drawRoundedRect(QRectF(1 * u, 8 * u, 3 * u, 2 * u), u, u);
}

// One piece of the framed call-out: which edges of the tile carry the border.
void callout(QPainter& p, const QSizeF& s, bool left, bool right, bool top, bool bottom,
             bool withAd) {
    p.fillRect(QRectF(QPointF(0, 0), s), kPaper);
    p.setPen(QPen(kInk, 2));
    const qreal w = s.width(), h = s.height();
    if (left) p.drawLine(QPointF(1, 0), QPointF(1, h));
    if (right) p.drawLine(QPointF(w - 1, 0), QPointF(w - 1, h));
    if (top) p.drawLine(QPointF(0, 1), QPointF(w, 1));
    if (bottom) p.drawLine(QPointF(0, h - 1), QPointF(w, h - 1));
    if (withAd) {
        p.setPen(Qt::NoPen);
        p.setBrush(kAccent);
        p.drawEllipse(QRectF(w * 0.35, h * 0.35, w * 0.3, h * 0.3));
    }
}

void button(QPainter& p, const QSizeF& s, const QString& glyph, bool disabled) {
    const QColor ink = disabled ? QColor(160, 160, 160) : kInk;
    p.setPen(QPen(ink, 1.5));
    p.setBrush(disabled ? QColor(235, 235, 235) : kPaper);
    p.drawRoundedRect(QRectF(1, 1, s.width() - 2, s.height() - 2), 4, 4);
    p.setPen(Qt::NoPen);
    p.setBrush(ink);
    const qreal w = s.width(), h = s.height();
    if (glyph == "play") {
        p.drawPolygon(QPolygonF({QPointF(w * 0.35, h * 0.25), QPointF(w * 0.75, h * 0.5),
                                 QPointF(w * 0.35, h * 0.75)}));
    } else if (glyph == "back") {
        p.drawPolygon(QPolygonF({QPointF(w * 0.65, h * 0.25), QPointF(w * 0.25, h * 0.5),
                                 QPointF(w * 0.65, h * 0.75)}));
    } else if (glyph == "pause") {
        p.drawRect(QRectF(w * 0.3, h * 0.25, w * 0.14, h * 0.5));
        p.drawRect(QRectF(w * 0.56, h * 0.25, w * 0.14, h * 0.5));
    } else if (glyph == "stop") {
        p.drawRect(QRectF(w * 0.3, h * 0.3, w * 0.4, h * 0.4));
    } else if (glyph == "cancel" || glyph == "clear") {
        p.setPen(QPen(ink, 2.5, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(w * 0.3, h * 0.3), QPointF(w * 0.7, h * 0.7));
        p.drawLine(QPointF(w * 0.7, h * 0.3), QPointF(w * 0.3, h * 0.7));
        if (glyph == "clear") {
            p.setBrush(Qt::NoBrush);
            p.drawEllipse(QRectF(w * 0.18, h * 0.18, w * 0.64, h * 0.64));
        }
    }
}

void folder(QPainter& p, const QSizeF& s, bool network) {
    const qreal w = s.width(), h = s.height();
    p.setPen(QPen(kInk, 1));
    p.setBrush(kAccent);
    p.drawRect(QRectF(w * 0.1, h * 0.25, w * 0.35, h * 0.12));
    p.drawRect(QRectF(w * 0.1, h * 0.33, w * 0.8, h * 0.5));
    if (network)
        globe(p, QRectF(w * 0.5, h * 0.5, w * 0.45, h * 0.45));
}

void layers(QPainter& p, const QSizeF& s) {
    const qreal w = s.width(), h = s.height();
    const QColor colours[] = {kSea, kLand, kAccent};
    for (int i = 2; i >= 0; --i) {
        const qreal y = h * (0.25 + 0.2 * i);
        p.setPen(QPen(kInk, 1));
        p.setBrush(colours[i]);
        p.drawPolygon(QPolygonF({QPointF(w * 0.5, y - h * 0.15), QPointF(w * 0.92, y),
                                 QPointF(w * 0.5, y + h * 0.15), QPointF(w * 0.08, y)}));
    }
}

void console(QPainter& p, const QSizeF& s) {
    p.fillRect(QRectF(QPointF(0, 0), s), kInk);
    globe(p, QRectF(s.width() * 0.05, s.height() * 0.15, s.height() * 0.7, s.height() * 0.7));
    p.setPen(QPen(kPaper, 2));
    for (int i = 0; i < 3; ++i) {
        const qreal y = s.height() * (0.3 + 0.2 * i);
        p.drawLine(QPointF(s.width() * 0.45, y), QPointF(s.width() * 0.9, y));
    }
}

void arrow(QPainter& p, const QSizeF& s) {
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    const qreal w = s.width(), h = s.height();
    p.drawPolygon(QPolygonF({QPointF(0, h * 0.3), QPointF(w, h * 0.5), QPointF(0, h * 0.7)}));
}

struct Image {
    const char* name;
    QSize size;
    Painter paint;
};

}  // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);  // fonts need the GUI application
    if (argc != 2) {
        std::fprintf(stderr, "usage: make-images RESOURCE_FOLDER\n");
        return 2;
    }
    const QDir root(QString::fromLocal8Bit(argv[1]));

    auto piece = [](bool l, bool r, bool t, bool b, bool ad = false) {
        return [=](QPainter& p, const QSizeF& s) { callout(p, s, l, r, t, b, ad); };
    };
    auto btn = [](const char* glyph, bool disabled) {
        return [=](QPainter& p, const QSizeF& s) { button(p, s, glyph, disabled); };
    };
    const QSize icon(32, 32), tile(16, 16), corner(24, 24);
    const Image images[] = {
        {"dglogo", {128, 48}, [](QPainter& p, const QSizeF& s) { logo(p, s, "Vanta"); }},
        {"crosshair", icon, [](QPainter& p, const QSizeF& s) { crosshair(p, s, kThin); }},
        {"banner", {320, 48}, [](QPainter& p, const QSizeF& s) { banner(p, s, "Welcome"); }},
        {"cursor_hand_grab", icon, [](QPainter& p, const QSizeF& s) { hand(p, s, true); }},
        {"cursor_crosshair_inverse", icon,
         [](QPainter& p, const QSizeF& s) { crosshair(p, s, kInverse); }},
        {"cursor_hand_open", icon, [](QPainter& p, const QSizeF& s) { hand(p, s, false); }},
        {"cursor_crosshair_thick", icon,
         [](QPainter& p, const QSizeF& s) { crosshair(p, s, kThick); }},
        {"cursor_crosshair_open", icon,
         [](QPainter& p, const QSizeF& s) { crosshair(p, s, kOpen); }},
        {"overview_console", {96, 48}, console},
        {"orvanelogo", {160, 48}, [](QPainter& p, const QSizeF& s) { logo(p, s, "Orvane"); }},
        {"streamed_layers", icon, layers},
        {"16x16", {16, 16}, [](QPainter& p, const QSizeF& s) { globe(p, QRectF({0, 0}, s)); }},
        {"ad_ll", corner, piece(true, false, false, true, true)},
        {"ad_lr", corner, piece(false, true, false, true, true)},
        {"ad_ur", corner, piece(false, true, true, false)},
        {"ad_ul", corner, piece(true, false, true, false)},
        {"ad_l", tile, piece(true, false, false, false)},
        {"ad_lo", tile, piece(false, false, false, true)},
        {"ad_r", tile, piece(false, true, false, false)},
        {"ad_up", tile, piece(false, false, true, false)},
        {"ad_center", tile, piece(false, false, false, false)},
        {"descrip_ll", corner, piece(true, false, false, true, true)},
        {"descrip_ll_noad", corner, piece(true, false, false, true)},
        {"descrip_lr", corner, piece(false, true, false, true, true)},
        {"descrip_lr_noad", corner, piece(false, true, false, true)},
        {"descrip_ur", corner, piece(false, true, true, false)},
        {"descrip_ul", corner, piece(true, false, true, false)},
        {"descrip_l", tile, piece(true, false, false, false)},
        {"descrip_lo", tile, piece(false, false, false, true)},
        {"descrip_r", tile, piece(false, true, false, false)},
        {"descrip_up", tile, piece(false, false, true, false)},
        {"flatarrow", {16, 24}, arrow},
        {"descrip_center", tile, piece(false, false, false, false)},
        {"opennetworkfolder", icon, [](QPainter& p, const QSizeF& s) { folder(p, s, true); }},
        {"play-forward", {24, 24}, btn("play", false)},
        {"play-forward-dis", {24, 24}, btn("play", true)},
        {"back", {24, 24}, btn("back", false)},
        {"back-dis", {24, 24}, btn("back", true)},
        {"cancel", {24, 24}, btn("cancel", false)},
        {"pause", {24, 24}, btn("pause", false)},
        {"stop", {24, 24}, btn("stop", false)},
        {"clear", {24, 24}, btn("clear", false)},
    };
    bool ok = root.mkpath(".");
    for (const Image& image : images)
        ok &= save(root.filePath(QString::fromLatin1(image.name) + ".png"), image.size, image.paint);

    // Localized variants of the banner, so the locale search has real folders to walk.
    const struct { const char* folder; const char* greeting; } localized[] = {
        {"en.lproj", "Welcome"},
        {"fr.lproj", "Bienvenue"},
        {"de.lproj", "Willkommen"},
        {"de_AT.lproj", "Servus"},
    };
    for (const auto& l : localized) {
        ok &= root.mkpath(l.folder);
        const QString greeting = QString::fromUtf8(l.greeting);
        ok &= save(root.filePath(QString::fromLatin1(l.folder) + "/welcome.png"), {320, 48},
                   [&](QPainter& p, const QSizeF& s) { banner(p, s, greeting); });
    }
    return ok ? 0 : 1;
}
