"""The live page in a real headless browser: frames arrive, and the overlay
of changed blocks lies where the moving object is in the picture shown.
argv: tarvo-demo."""
import shutil, sys, tempfile
from demo_run import DemoRun, skip_or_fail

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    skip_or_fail("python3-selenium is missing")
if not shutil.which("chromium") or not shutil.which("chromedriver"):
    skip_or_fail("chromium or chromium-driver is missing")


def browser(profile_folder):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for flag in ("--headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
                 "--disable-background-networking --disable-component-update --disable-sync "
                 "--user-data-dir=" + profile_folder).split():
        options.add_argument(flag)
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


# The object's columns in the picture the browser shows (it is the one
# orange thing: red well above blue), and the overlay's box at that moment.
SAMPLE = """const picture = document.createElement('canvas').getContext('2d');
picture.canvas.width = 640;
picture.drawImage(document.getElementById('live'), 0, -250);
const row = picture.getImageData(0, 0, 640, 1).data, columns = [];
for (let x = 0; x < 640; x++) if (row[x * 4] - row[x * 4 + 2] > 100) columns.push(x);
return [columns, window.demo.overlay];"""


def samples(driver, count):
    """(object's left, right, overlay box) at count moments, each object place new."""
    found = []
    def sample(driver):
        columns, box = driver.execute_script(SAMPLE)
        if columns and box and all(columns[0] != left for left, _, _ in found):
            found.append((columns[0], columns[-1], box))
        return len(found) == count
    WebDriverWait(driver, 60, poll_frequency=0.05).until(sample)
    return found


def main():
    demo, driver = DemoRun(sys.argv[1]), None
    profile_folder = tempfile.mkdtemp(prefix="tarvo-chromium-")
    try:
        address = demo.start()
        driver = browser(profile_folder)
        driver.get(address)
        WebDriverWait(driver, 60).until(
            lambda driver: driver.execute_script("return window.demo.framesSeen") >= 20)
        # The overlay trails the picture by a poll of /state: a few frames.
        seen = samples(driver, 10)
        near = [box["left"] - 64 <= right and left <= box["right"] + 64 for left, right, box in seen]
        assert sum(near) >= 8, seen
        WebDriverWait(driver, 60).until(
            lambda driver: driver.execute_script("return window.demo.events.length") >= 1)
    finally:
        if driver:
            driver.quit()
        demo.close()
        shutil.rmtree(profile_folder, ignore_errors=True)


main()
