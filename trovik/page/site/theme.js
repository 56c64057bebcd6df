// Loaded before anything is drawn, so that a chosen theme does not flash.
(() => {
  let theme = null;
  try {
    theme = localStorage.getItem("trovik-theme");
  } catch {
    // Storage may be forbidden; the system's choice holds then.
  }
  if (theme === "light" || theme === "dark") {
    document.documentElement.dataset.theme = theme;
  }
})();
