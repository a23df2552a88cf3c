"""The live page in a real headless browser: frames arrive, and the overlay
of changed blocks follows the object across the picture (it moves right).
argv: tarvo_demo."""
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
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync",
                 "--user-data-dir=" + profile_folder):
        options.add_argument(flag)
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


def overlay_positions(driver, count):
    """Right edges of the overlay's box, each different from the last."""
    positions = []
    def next_position(driver):
        box = driver.execute_script("return window.demo.overlay")
        if box and (not positions or box["right"] != positions[-1]):
            positions.append(box["right"])
        return len(positions) == count
    WebDriverWait(driver, 60, poll_frequency=0.05).until(next_position)
    return positions


def main():
    demo, profile_folder = DemoRun(sys.argv[1]), tempfile.mkdtemp(prefix="tarvo-chromium-")
    driver = None
    try:
        address = demo.start()
        driver = browser(profile_folder)
        driver.get(address)
        WebDriverWait(driver, 60).until(
            lambda driver: driver.execute_script("return window.demo.framesSeen") >= 20)
        positions = overlay_positions(driver, 8)
        # The object leaves on the right and comes back on the left once a loop.
        steps = list(zip(positions, positions[1:]))
        assert sum(after > before for before, after in steps) >= len(steps) - 2, positions
        print("overlay right edges:", positions)
        WebDriverWait(driver, 60).until(
            lambda driver: driver.execute_script("return window.demo.events.length") >= 1)
    finally:
        if driver:
            driver.quit()
        demo.close()
        shutil.rmtree(profile_folder, ignore_errors=True)
    print("passed")


main()
