#pragma once

#include "trovik/page/PageAnswers.h"
#include "trovik/page/PageQuestion.h"
#include "trovik/page/PageRoute.h"
#include "trovik/page/Steering.h"

namespace trovik {

/// A helper's side of the page: reads the queue, and what jobs have left in
/// folders, and steers. It runs in a process of its own, since a network folder
/// whose server is gone holds up who asks for it; see PageHelpers.
class PageHelper {
public:
  PageHelper(Queue& queue, Steering& steering, ImageInspector& inspector)
      : queue_(queue), steering_(steering), answers_(queue, revisions_, inspector) {}

  /// What is asked for was allowed before. Throws nothing.
  HttpResponse answer(const PageQuestion& question);

private:
  HttpResponse read(const HttpRequest& request, const PageRoute& route);
  HttpResponse steered(const HttpRequest& request, const PageRoute& route);

  Queue& queue_;
  Steering& steering_;
  Revisions revisions_;
  PageAnswers answers_;
};

/// Answers the questions of standard input on standard output until it ends.
/// What anybody else prints goes with the answers.
void answerQuestions(PageHelper& helper);

} // namespace trovik
