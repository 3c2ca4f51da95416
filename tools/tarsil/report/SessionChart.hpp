#pragma once

#include <string>
#include <vector>

#include "tools/tarsil/report/Axis.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"

namespace tarsil::cli {

/// The charts of a session as one SVG picture: panels for load, grade or pedal rate, blood pressure and
/// oxygen saturation over one time axis, phases as bands, marks as numbered flags. Each panel and the picture
/// carry their scales as data attributes.
class SessionChart {
 public:
  /// A narrow one is for telephones: its letters are as large there as those of a wide one elsewhere.
  enum class Form { wide, narrow };

  explicit SessionChart(const SessionRecord& record, Form form = Form::wide);

  std::string svg();

 private:
  struct Panel {
    Axis axis;
    double top;
    double bottom;

    double y(double value) const { return bottom - axis.fraction(value) * (bottom - top); }
  };

  bool isTreadmill() const;
  double x(Duration at) const;
  void add(const std::string& line) { body_ += line + '\n'; }

  void loadPanel();
  void gradePanel();
  void pedalPanel();
  void pressurePanel();
  void saturationPanel();

  /// Opens a group; the caller closes it.
  Panel beginPanel(const char* name, const char* title, double height, const Axis& axis,
                   const std::vector<std::pair<const char*, const char*>>& legend);
  void endPanel() { add("</g>"); }
  /// A value that holds until the next one.
  void steps(const Panel& panel, const char* kind, const SessionRecord::Series& series, Duration end);
  /// Values that are known at their moments; the line breaks where none came for a while.
  void reports(const Panel& panel, const char* kind, const SessionRecord::Series& series);
  void piece(const Panel& panel, const char* kind, const SessionRecord::Series& piece);

  std::string bands() const;
  std::string flags() const;
  std::string timeAxis() const;

  const SessionRecord& record_;
  const Form form_;
  /// Of the panels.
  const double right_;
  const Axis time_;
  std::string body_;
  /// Where the next panel begins.
  double bottom_;
};

}  // namespace tarsil::cli
